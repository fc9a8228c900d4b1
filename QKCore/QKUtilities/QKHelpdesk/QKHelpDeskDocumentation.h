#pragma once

#include "QKHelpDeskView.h"

#include <memory>

namespace Ui {
class QKHelpDeskDocumentation;
}

/**
 * The documentation pane: which manual is current and when it was published, its download
 * as a PDF or a zip archive, the online manual, and an alert when a manual newer than the
 * last download has been published.
 *
 * The last download's date is stored under "Last Documentation Download" when the download
 * starts, whether or not it then succeeds; "Notify Documentation Updates" switches the
 * alert.
 */
class QKUTILITIES_EXPORT QKHelpDeskDocumentation : public QKHelpDeskView
{
    Q_OBJECT
public:
    /** How the documentation cast gives the publication date: "Sat, 02 Mar 2024 04:05:00
     *  +0000" (a 12-hour clock without a half of the day). */
    static const QString PublishedCastFormat;
    /** How the publication date is shown: "Tue, Mar 03 2009 4:05 PM". */
    static const QString PublishedTextFormat;

    explicit QKHelpDeskDocumentation(QWidget *parent = nullptr);
    ~QKHelpDeskDocumentation() override;

    QString identifier() const override;
    QString title() const override;
    /** Sets the notify box from the settings. */
    void awakeFromNib() override;
    /**
     * Shows the cast's version and publication date (a line keeps its text with an empty
     * value when the cast lacks it) and, when notifying is on and the manual was published strictly
     * after the last download (1 January 2001 when there was none), asks "A documentation update is
     * available" with "Help Desk" (which opens this pane) and "Later".
     */
    void castsDidLoad() override;

    /** Downloads the manual in the chosen form through the help desk, from
     *  "<base>/manuals/<code>/<major>//<type>/<Name>_<major>.x_Manual.<type>" (the name
     *  without spaces, the double slash kept), and stores now as the last download. */
    Q_INVOKABLE void download(QObject *sender = nullptr);
    /** Opens the online manual ("<base>/manuals.php?appCode=<code>&version=<major>") in the
     *  browser; does nothing without a help desk. */
    Q_INVOKABLE void viewOnline(QObject *sender = nullptr);
    /** The notify box's action: stores its state. */
    Q_INVOKABLE void notifyChanged(QObject *sender = nullptr);

private:
    std::unique_ptr<Ui::QKHelpDeskDocumentation> ui;
};
