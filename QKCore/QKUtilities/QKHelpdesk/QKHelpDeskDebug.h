#pragma once

#include "QKHelpDeskView.h"

#include <memory>

class QDialog;
class QKApplicationLog;
class QKHelpDeskDebugRulesModel;

namespace Ui {
class QKHelpDeskDebug;
class QKHelpDeskAddRulePanel;
} // namespace Ui

/**
 * The debug log pane, usually used with support staff: switches the shared application log
 * on or off, sets its default threshold, and adds, edits and removes the per-domain rules
 * that log a domain at a threshold of its own. The settings belong to the log, which
 * stores them; the pane only edits them.
 */
class QKUTILITIES_EXPORT QKHelpDeskDebug : public QKHelpDeskView
{
    Q_OBJECT
public:
    explicit QKHelpDeskDebug(QWidget *parent = nullptr);
    ~QKHelpDeskDebug() override;

    QString identifier() const override;
    QString title() const override;
    /** Sets the check box and the threshold menu (item n is level n) from the log. */
    void awakeFromNib() override;

    /** The shared log, looked up at each use so that a reset log is followed. */
    QKApplicationLog *appLog() const;
    /** The rules table's model. */
    QKHelpDeskDebugRulesModel *model() const;
    /** The sheet that asks for a new rule's domain. */
    QDialog *addRulePanel() const;

    /** The check box's action: switches the log on or off. */
    Q_INVOKABLE void enabledChanged(QObject *sender = nullptr);
    /** The menu's action: the selected level becomes the default threshold. */
    Q_INVOKABLE void defaultThresholdChanged(QObject *sender = nullptr);
    /** Shows the log file. */
    Q_INVOKABLE void openLog(QObject *sender = nullptr);
    /** Shows the add-rule sheet on the help desk window. */
    Q_INVOKABLE void openAddRulePanel(QObject *sender = nullptr);
    /** Adds a rule for the domain typed in the sheet at the current default threshold (the
     *  level is changed in the table afterwards) and closes the sheet. Nothing is added
     *  for an empty domain, which the log reads as its default threshold. */
    Q_INVOKABLE void addRule(QObject *sender = nullptr);
    /** Closes the sheet without adding a rule. */
    Q_INVOKABLE void cancelAddRule(QObject *sender = nullptr);
    void closeAddRulePanel();
    /** Removes the selected rule; the remove button is disabled without a selection. */
    Q_INVOKABLE void removeRule(QObject *sender = nullptr);
    /** Enables the remove button exactly while a row is selected. */
    void tableViewSelectionDidChange();

private:
    void reloadTable();

    std::unique_ptr<Ui::QKHelpDeskDebug> ui;
    std::unique_ptr<Ui::QKHelpDeskAddRulePanel> panelUi;
    QDialog *m_addRulePanel;
    QKHelpDeskDebugRulesModel *m_model;
};
