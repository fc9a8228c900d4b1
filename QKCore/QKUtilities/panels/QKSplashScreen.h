#pragma once

#include "QKUtilitiesGlobal.h"

#include <QDateTime>
#include <QObject>

#include <functional>
#include <memory>

class QWidget;

/**
 * The borderless, rounded, dark window shown while the host finishes launching: the
 * application's name, version and copyright, and a line saying what start-up is doing.
 *
 * A host opts in by answering true from QKApplication::usesSplashScreen() and running its
 * start-up through QKApplication::finishLaunching(); this library installs finishLaunching()
 * below as that call's wrapper when it is loaded. Long start-up work reports its steps with
 * the class-level setAction().
 */
class QKUTILITIES_EXPORT QKSplashScreen : public QObject
{
    Q_OBJECT
public:
    /** The shared splash screen, created (not shown) on first use. */
    static QKSplashScreen *splashScreen();
    /** Shows @p text as the current action of the shared splash screen when the
     *  application uses one; otherwise does nothing and creates no splash screen. */
    static void setAction(const QString &text);
    /** Shows @p text as the current action when the shared splash screen is on screen;
     *  otherwise does nothing (also in a process without widgets). */
    static void setActionIfVisible(const QString &text);
    /** Opens the shared splash screen, runs @p launchWork and closes the splash again. */
    static void finishLaunching(const std::function<void()> &launchWork);

    /** @p shortVersion with its release tag spelled out: every "pb" becomes " Public Beta ";
     *  if there is none, every "rc" becomes " Release Candidate ", else every "b" " Beta ",
     *  else every "a" " Alpha ". Only the first kind found is replaced ("1.0a1b2" gives
     *  "1.0a1 Beta 2"). */
    static QString versionString(const QString &shortVersion);
    /** The copyright line @p copyright with its years ending at @p year: the end of a range
     *  ("2003-2007") becomes @p year, an earlier single year becomes a range to @p year. An
     *  empty line gives "Copyright © <year> Velmora". */
    static QString copyrightString(const QString &copyright, int year);

    /** How long the fade-out lasts, in milliseconds; 250 unless set. Zero closes at once. */
    static int fadeDuration();
    static void setFadeDuration(int msecs);

    ~QKSplashScreen() override;

    /** Shows @p text followed by "..." as the current action and draws it on screen at once:
     *  start-up work keeps the main thread busy, so it cannot wait for the next paint. */
    void setActionText(const QString &text);

    /** Centres the window and brings it to the front, unless it is visible already. */
    void open();
    /** Fades the window out, then closes it and destroys the splash screen; the next
     *  splashScreen() makes a new one. */
    void close();
    /** True while the window is shown. */
    bool isVisible() const;

    /** The window; it exists as long as the splash screen. */
    QWidget *window() const;
    /** The content of the window, from "QKSplashScreen.ui". */
    QWidget *contentView() const;

private:
    QKSplashScreen();
    void awakeFromNib();
    void release();

    struct Private;
    std::unique_ptr<Private> d;
};
