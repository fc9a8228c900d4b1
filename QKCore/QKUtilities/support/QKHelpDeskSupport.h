#pragma once

#include "HSResults.h"
#include "QKHelpDeskView.h"

#include <memory>
#include <optional>

class QKHelpDeskAttachFilesPanel;
class QKHelpDeskExchange;
class QKHelpDeskUploadChain;
class QKSystemProfiler;

namespace Ui {
class QKHelpDeskSupport;
}

/**
 * The support pane: a new request to the help desk with the diagnostics that go with it,
 * and the follow-up of earlier requests. The help desk fills its category menu from the
 * API's category list and prepares it for a crash report or an application error.
 *
 * A new request is validated, posted as a "new" form and, once the help desk has answered
 * with the request's numbers, followed by the upload chain (system profile, crash logs,
 * debug log, attached files; see QKHelpDeskUploadChain). The follow-up side lists the
 * requests filed under an e-mail address, shows the public history of one, and sends a
 * reply, followed by crash logs and attached files when chosen.
 *
 * Every step is logged under the domain "HDSupport", steps at info level and failures at
 * warning level. One exchange with the help desk runs at a time, while the help desk's
 * progress panel shows it.
 */
class QKUTILITIES_EXPORT QKHelpDeskSupport : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskSupport(QWidget *parent = nullptr);
    ~QKHelpDeskSupport() override;

    QString identifier() const override;
    QString title() const override;
    bool isResizable() const override;
    double minimumHeight() const override;

    /** The address of the "HelpSpot" link under the pane. */
    static QString helpSpotURL();

    /**
     * Fills the form from the user's own card (first and last name, phone) and the e-mail
     * address last used (the default "Help Desk Email", into both e-mail fields), and writes
     * the "Powered by HelpSpot" line with its link.
     */
    void awakeFromNib() override;

    /**
     * Rebuilds the category menu: "<choose a category>" first, then every category of
     * @p results whose "fAllowPublicSubmit" is 1 and "fDeleted" is 0, in reply order, titled
     * "sCategory" and tagged (item data) with "xCategory". The menu is enabled only when it
     * offers a category. A null @p results leaves only the first item.
     */
    void buildCategoryPopup(const HSResults &results);
    /** Starts the message of a crash report and turns on sending the crash logs. */
    void setupForCrashReport();
    /** Starts the message of an application error report with its reason and trace. */
    void setupForApplicationErrorWithReason(const QString &reason, const QString &stackTrace);

    /**
     * The Submit button: asks for a category, then for a message (an alert each, in that
     * order), stores the e-mail address and posts the request. Nothing is shown when the
     * exchange cannot start (logged).
     */
    void submit(QObject *sender = nullptr);
    /** The end of the "new" exchange; on success starts the upload chain. */
    void endSubmit(const std::optional<QString> &error);

    /** Lists the requests filed under the search field's address; sent by the pane itself
     *  to refresh the list after uploads. */
    void search(QObject *sender = nullptr);
    /** The end of the "list" exchange: whatever arrived becomes the request list. */
    void endSearch(const std::optional<QString> &error);
    /** Rebuilds the request menu from the last search, keeping the selected request when
     *  it is still listed; "no requests found" and the reply controls off when none is. */
    void buildRequestPopup();
    /** The show-closed checkbox: rebuilds the request menu. */
    void showClosedChanged(QObject *sender = nullptr);
    /** Shows the public history of the selected request, newest first. */
    void requestChanged(QObject *sender = nullptr);
    /** Sends the reply text to the selected request. */
    void updateRequest(QObject *sender = nullptr);
    /** The end of the "update" exchange; on success starts the chain at the crash logs
     *  (when chosen) or at the attached files. */
    void endUpdate(const std::optional<QString> &error);

    /** Shows the attach-files sheet over the help desk window. */
    void openAttachFilesPanel(QObject *sender = nullptr);
    QKHelpDeskAttachFilesPanel *attachFilesPanel() const;
    /** The attached files, in the order added. */
    QStringList attachedFiles() const;

    /** The request being worked on; empty when no chain runs or after it finished. */
    QString requestID() const;
    /** Its history entry, which the uploads attach to; empty likewise. */
    QString requestHistoryID() const;
    /** The last search's requests; nullopt before the first search, while one runs, and
     *  after one whose reply was not XML. */
    std::optional<HSResults> requests() const;

    /** The pane's one exchange at a time with the help desk API. */
    QKHelpDeskExchange *exchange() const;
    QKHelpDeskUploadChain *uploadChain() const;
    /** The profiler of the system profile upload (lshw by default). */
    void setSystemProfiler(const QKSystemProfiler &profiler);

private:
    void connectActions();
    void startChain(bool crashLogs);
    void chainDidFinish();
    void closeAttachFilesPanel(bool attached);

    std::unique_ptr<Ui::QKHelpDeskSupport> ui;
    struct Private;
    std::unique_ptr<Private> d;
};
