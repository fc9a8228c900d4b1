#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QStringList>

#include <memory>
#include <optional>

class QKHelpDeskExchange;
class QKHelpDeskView;
class QKSystemProfiler;

/**
 * The diagnostics that follow a support request to the help desk, uploaded one after the
 * other to the request's history entry: the system profile, the crash logs, the debug log
 * and the attached files. Each is zipped in the application's temporary folder, encoded as
 * Base64 and sent as an "add_document" form; its archive is deleted as soon as the upload
 * has started (or failed to start).
 *
 * Each stage's end method decides the next stage; a skipped stage passes the chain on by
 * calling its end method with no error. The first failure closes the help desk's progress
 * panel with the stage's message and ends the chain; nothing is retried. The chain runs on
 * the main thread, except for the system profile, which is collected on a worker thread
 * while the progress panel offers Cancel. finished() reports the end of a chain in which
 * every stage succeeded or was skipped.
 */
class QKUTILITIES_EXPORT QKHelpDeskUploadChain : public QObject
{
    Q_OBJECT
public:
    /** What a chain sends, and for which request. */
    struct Plan
    {
        QString requestID;
        /** The history entry every upload is attached to. */
        QString requestHistoryID;
        /** Send the crash logs after the system profile. */
        bool crashLogs = false;
        /** Send the debug log after the crash logs. */
        bool debugLog = false;
        QStringList attachedFiles;
    };

    /** A chain of @p pane (its help desk's progress panel shows the stages) whose uploads go
     *  through @p exchange. */
    QKHelpDeskUploadChain(QKHelpDeskView *pane, QKHelpDeskExchange *exchange);
    /** Waits for a system profile still being collected. */
    ~QKHelpDeskUploadChain() override;

    /** Sets what the next chain sends; the stages read it as they come. */
    void setPlan(const Plan &plan);
    Plan plan() const;

    /** The profiler of the system profile stage (lshw by default). */
    void setSystemProfiler(const QKSystemProfiler &profiler);

    /** Collects the system profile on a worker thread; the panel offers Cancel meanwhile. */
    void createSystemProfile();
    void endSubmitSystemProfile(const std::optional<QString> &error);
    void submitCrashLog();
    void endSubmitCrashLog(const std::optional<QString> &error);
    void submitDebugLog();
    void endSubmitDebugLog(const std::optional<QString> &error);
    void submitAttachedFiles();
    void endSubmitAttachedFiles(const std::optional<QString> &error);

    /** The debug log sent by the chain: "~/Library/Logs/Velmora/<name>.log", expanded. */
    static QString debugLogPath();

Q_SIGNALS:
    /** Every stage succeeded or was skipped. */
    void finished();

private:
    void endCreateSystemProfile(const QString &archivePath, bool cancelled);

    struct Private;
    std::unique_ptr<Private> d;
};
