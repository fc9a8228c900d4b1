#pragma once

#include "QKBaseGlobal.h"

#include <QStringList>

#include <functional>

class QWidget;

/** What an alert shows: the message, the informative text and the buttons, first one default. */
struct QKBASE_EXPORT QKAlertRequest
{
    /** A warning asks the user to act or tells of a failure; information tells of a state. */
    enum class Style { Warning, Informational };

    QString message;
    QString informativeText;
    QStringList buttons; // empty: a single "OK"
    QWidget *parent = nullptr;
    Style style = Style::Warning;
};

/**
 * Every alert of the library goes through here. runModal shows a QMessageBox with the
 * buttons in order and answers the index of the button pressed (0 for the first).
 * Tests install an answerer so that no test blocks on a modal window; shownAlerts() then
 * lists what would have been shown.
 */
class QKBASE_EXPORT QKAlert
{
public:
    using Answerer = std::function<int(const QKAlertRequest &request)>;

    static int runModal(const QKAlertRequest &request);
    static int runModal(const QString &message, const QString &informativeText,
                        const QStringList &buttons = {});

    /** Answers every alert from now on instead of a message box; an empty answerer
     *  restores the message box. */
    static void setAnswerer(Answerer answerer);
    /** Every alert shown since the answerer was last set, oldest first. */
    static QList<QKAlertRequest> shownAlerts();
};

/** What an open or save panel asks for. */
struct QKBASE_EXPORT QKFilePanelRequest
{
    QString title;
    QString directory;
    QStringList fileTypes; // extensions without the dot; empty allows every file
    bool allowsMultipleSelection = false;
    QWidget *parent = nullptr;
};

/**
 * Open and save panels (QFileDialog). Like alerts, tests install an answerer; an empty
 * result means the user cancelled.
 */
class QKBASE_EXPORT QKFilePanels
{
public:
    using Answerer = std::function<QStringList(const QKFilePanelRequest &request, bool save)>;

    /** The chosen files; empty when cancelled. */
    static QStringList runOpenPanel(const QKFilePanelRequest &request);
    /** The chosen path, with the first file type appended when it lacks one; empty when
     *  cancelled. */
    static QString runSavePanel(const QKFilePanelRequest &request);
    static void setAnswerer(Answerer answerer);
};
