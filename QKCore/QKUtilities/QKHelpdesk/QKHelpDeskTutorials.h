#pragma once

#include "QKHelpDeskView.h"

#include <QVariantList>
#include <QVariantMap>

#include <memory>

class QDateTime;
class QKHelpDeskTutorialsModel;

namespace Ui {
class QKHelpDeskTutorials;
}

/**
 * The tutorials pane: the video tutorials published for this application and version as a
 * tree, whose selected tutorial's download or streaming address opens in the browser, and
 * an alert when a tutorial was published since the last check.
 *
 * Every arrival of the casts counts as a check ("Last Tutorial Check"), whatever the user
 * answers, so the alert comes once per new tutorial. "Notify Tutorial Updates" switches it.
 */
class QKUTILITIES_EXPORT QKHelpDeskTutorials : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskTutorials(QWidget *parent = nullptr);
    ~QKHelpDeskTutorials() override;

    QString identifier() const override;
    QString title() const override;
    bool isResizable() const override;
    double minimumHeight() const override;
    /** Sets the notify box from the settings. */
    void awakeFromNib() override;
    /**
     * When notifying is on and a tutorial is newer than the last check (1 January 2001 when
     * there was none), asks "New tutorials are available" with "Help Desk" (which opens this
     * pane) and "Later"; then stores now as the last check and shows the whole tree expanded.
     */
    void castsDidLoad() override;

    /** Whether an entry of @p entries, or of their "items" at any depth, was published
     *  strictly after @p date. Entries without a readable "published" date only count
     *  through their children. */
    static bool containsUpdates(const QVariantList &entries, const QDateTime &date);

    /** Opens the selected tutorial's download address in the browser. */
    Q_INVOKABLE void download(QObject *sender = nullptr);
    /** Opens the selected tutorial's streaming address in the browser; nothing opens when
     *  it has none. */
    Q_INVOKABLE void stream(QObject *sender = nullptr);
    /** The notify box's action: stores its state. */
    Q_INVOKABLE void notifyChanged(QObject *sender = nullptr);
    /** Enables the download and stream buttons exactly when the selected tutorial has a
     *  download address: the stream button follows the download address too. */
    void outlineViewSelectionDidChange();

    /** The selected entry's "downloadURL"; null when nothing is selected or it has none. */
    QString selectedItemDownloadURL() const;
    /** The selected entry's "streamURL"; null when nothing is selected or it has none. */
    QString selectedItemStreamURL() const;

    /** The tree shown in the outline. */
    QKHelpDeskTutorialsModel *model() const;

private:
    QVariantMap selectedEntry() const;
    QString selectedValue(const QString &key) const;

    std::unique_ptr<Ui::QKHelpDeskTutorials> ui;
    QKHelpDeskTutorialsModel *m_model;
};
