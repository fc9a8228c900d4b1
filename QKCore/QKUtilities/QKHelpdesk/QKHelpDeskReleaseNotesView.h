#pragma once

#include "QKHelpDeskView.h"

#include <QList>

#include <memory>

class SUAppcastItem;

namespace Ui {
class QKHelpDeskReleaseNotesView;
}

/**
 * The release notes pane: the notes of the appcast's releases as one page, for the newest
 * release, the running version or every older release, and a button that opens the raw
 * appcast in the browser.
 *
 * Until the appcast has arrived (for the whole run when there is no network) the pane shows
 * "Please wait for the release notes to load...".
 */
class QKUTILITIES_EXPORT QKHelpDeskReleaseNotesView : public QKHelpDeskView
{
    Q_OBJECT
public:
    /** The choices of the pop-up menu, by item index. */
    enum NotesType { NewestVersion = 0, ThisVersion = 1, OlderVersions = 2 };

    explicit QKHelpDeskReleaseNotesView(QWidget *parent = nullptr);
    ~QKHelpDeskReleaseNotesView() override;

    QString identifier() const override;
    QString title() const override;
    bool isResizable() const override;
    double minimumHeight() const override;
    /** Shrinks the notes' text to three quarters and shows the waiting page. */
    void awakeFromNib() override;
    /** Builds the page for the appcast that has arrived. */
    void castsDidLoad() override;

    /**
     * Rebuilds the page for the pop-up's choice: the newest item's title, "<hr>" and notes;
     * the same for the running version's item; or, for older versions, title, "<hr>",
     * notes and "<hr>" for every item after the running version's. The page is wrapped in
     * "<font face='Lucida Grande' size=2>" ... "</font>". An empty appcast keeps the page.
     */
    void updateNotes();
    /** The pop-up menu's action: rebuilds the page. */
    Q_INVOKABLE void changeType(QObject *sender = nullptr);
    /** Opens the appcast in the browser: "<base>/appcasts/<code>/<major>/index.xml", or for
     *  a beta build the beta area "<site root>/users/beta/appcasts/<code>/<major>/index.php",
     *  the site root being the scheme, host and port of the base URL. */
    Q_INVOKABLE void appcast(QObject *sender = nullptr);

    /** The index of the first item describing the running build (CFBundleVersion); 0 when
     *  none does, so an unknown or newer build shows the newest notes. */
    static qsizetype indexOfItemForCurrentVersion(const QList<SUAppcastItem> &items);

    /** The HTML last loaded into the notes view. */
    QString pageSource() const;

private:
    void loadHTMLString(const QString &html);

    std::unique_ptr<Ui::QKHelpDeskReleaseNotesView> ui;
    QString m_pageSource;
};
