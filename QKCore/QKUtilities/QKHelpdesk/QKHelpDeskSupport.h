#pragma once

#include "QKHelpDeskView.h"

#include <memory>

class HSResults;

namespace Ui {
class QKHelpDeskSupport;
}

/**
 * The support pane: a request to the help desk with the diagnostics that go with it. The
 * help desk fills its category menu from the API's category list and prepares it for a
 * crash report or an application error.
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

private:
    std::unique_ptr<Ui::QKHelpDeskSupport> ui;
};
