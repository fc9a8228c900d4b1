#pragma once

#include "QKUtilitiesGlobal.h"

#include <QDateTime>
#include <QObject>

#include <functional>
#include <memory>

class QKBundle;
class QWidget;

/**
 * The host's About window: a borderless, rounded, dark panel that fades in and out, with
 * the application's name, version, build and copyright, an extra line, and two buttons
 * that open the bundle's "legal.pdf" and "acknowledgments.pdf" in the default viewer.
 * A click anywhere on the panel's background closes it. Opened with Control, Alt and
 * Shift held (Command, Option and Shift on a Mac keyboard), the extra line tells how old
 * Kestrin is.
 */
class QKUTILITIES_EXPORT QKAboutPanel : public QObject
{
    Q_OBJECT
public:
    /** The shared panel, made from "QKAboutPanel.ui" on first use; it lives as long as the
     *  application. */
    static QKAboutPanel *aboutPanel();
    /** Opens the shared panel (the class-level open; the instance's is open()). */
    static void openPanel();

    /** The line shown for the birthday at @p now, a year being 356 days:
     *  "Kestrin is 1 year and 0 months old today!". */
    static QString birthdayString(const QDateTime &now);

    /** Takes the texts and documents from @p bundle instead of the main bundle (null
     *  restores it); only panels made afterwards see the change. */
    static void setBundle(QKBundle *bundle);
    /** How long the fades last, in milliseconds; 250 unless set. Zero shows and closes
     *  at once. */
    static int fadeDuration();
    static void setFadeDuration(int msecs);

    ~QKAboutPanel() override;

    /** Fades the panel in, centred, unless it is visible already; the extra line is the
     *  birthday line while Control, Alt and Shift are held, else empty. */
    void open();
    /** Fades the panel out and closes it; the panel and its window stay for the next
     *  open(). */
    void close();
    /** True while the window is shown. */
    bool isVisible() const;

    /** Opens "legal.pdf" of the bundle in the default viewer; nothing when it is absent. */
    Q_INVOKABLE void openLegal(QObject *sender = nullptr);
    /** Opens "acknowledgments.pdf" of the bundle in the default viewer; nothing when it is
     *  absent. */
    Q_INVOKABLE void openAcknowledgements(QObject *sender = nullptr);

    /** The window. */
    QWidget *window() const;
    /** The content of the window, from "QKAboutPanel.ui". */
    QWidget *view() const;

private:
    QKAboutPanel();
    void awakeFromNib();
    void openDocument(const QString &name);

    struct Private;
    std::unique_ptr<Private> d;
};
