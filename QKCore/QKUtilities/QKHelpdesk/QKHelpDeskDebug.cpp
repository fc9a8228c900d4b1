#include "QKHelpDeskDebug.h"
#include "ui_QKHelpDeskAddRulePanel.h"
#include "ui_QKHelpDeskDebug.h"

#include "QKHelpDeskDebugRulesModel.h"

#include <QKApplicationLog.h>

namespace {
constexpr uint levelCount = QKApplicationLog::Error + 1;
}

QKHelpDeskDebug::QKHelpDeskDebug(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskDebug>()),
      panelUi(std::make_unique<Ui::QKHelpDeskAddRulePanel>()),
      m_model(new QKHelpDeskDebugRulesModel(this))
{
    ui->setupUi(this);
    for (uint level = 0; level < levelCount; ++level)
        ui->defaultThresholdPopup->addItem(QKApplicationLog::levelName(level));
    ui->table->setModel(m_model);

    // A dialog child of the pane is window-modal over the help desk window: a sheet.
    m_addRulePanel = new QDialog(this);
    panelUi->setupUi(m_addRulePanel);
    m_addRulePanel->setWindowModality(Qt::WindowModal);

    connect(ui->enabledButton, &QCheckBox::clicked, this, [this] { enabledChanged(this); });
    connect(ui->defaultThresholdPopup, &QComboBox::activated, this,
            [this] { defaultThresholdChanged(this); });
    connect(ui->openLogButton, &QPushButton::clicked, this, [this] { openLog(this); });
    connect(ui->addRuleButton, &QPushButton::clicked, this, [this] { openAddRulePanel(this); });
    connect(ui->removeButton, &QPushButton::clicked, this, [this] { removeRule(this); });
    connect(ui->table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &QKHelpDeskDebug::tableViewSelectionDidChange);
    connect(panelUi->addButton, &QPushButton::clicked, this, [this] { addRule(this); });
    connect(panelUi->cancelButton, &QPushButton::clicked, this, [this] { cancelAddRule(this); });
    connect(m_addRulePanel, &QDialog::rejected, this, [this] { cancelAddRule(this); });
}

QKHelpDeskDebug::~QKHelpDeskDebug() = default;

QString QKHelpDeskDebug::identifier() const
{
    return QStringLiteral("debug");
}

QString QKHelpDeskDebug::title() const
{
    return QStringLiteral("Debug");
}

void QKHelpDeskDebug::awakeFromNib()
{
    QKHelpDeskView::awakeFromNib();
    ui->enabledButton->setChecked(appLog()->_active());
    ui->defaultThresholdPopup->setCurrentIndex(int(appLog()->_defaultThreshold()));
    reloadTable();
}

QKApplicationLog *QKHelpDeskDebug::appLog() const
{
    return QKApplicationLog::sharedLog();
}

QKHelpDeskDebugRulesModel *QKHelpDeskDebug::model() const
{
    return m_model;
}

QDialog *QKHelpDeskDebug::addRulePanel() const
{
    return m_addRulePanel;
}

void QKHelpDeskDebug::enabledChanged(QObject *)
{
    appLog()->_setActive(ui->enabledButton->isChecked());
}

void QKHelpDeskDebug::defaultThresholdChanged(QObject *)
{
    const int level = ui->defaultThresholdPopup->currentIndex();
    if (level >= 0)
        appLog()->_setThreshold(uint(level));
}

void QKHelpDeskDebug::openLog(QObject *)
{
    appLog()->openLogFile();
}

void QKHelpDeskDebug::openAddRulePanel(QObject *)
{
    panelUi->domainText->selectAll();
    panelUi->domainText->setFocus();
    m_addRulePanel->open();
}

void QKHelpDeskDebug::addRule(QObject *)
{
    const QString domain = panelUi->domainText->text();
    if (!domain.isEmpty())
        appLog()->_setThreshold(appLog()->_defaultThreshold(), domain);
    closeAddRulePanel();
    reloadTable();
}

void QKHelpDeskDebug::cancelAddRule(QObject *)
{
    closeAddRulePanel();
}

void QKHelpDeskDebug::closeAddRulePanel()
{
    m_addRulePanel->hide();
}

void QKHelpDeskDebug::removeRule(QObject *)
{
    const QModelIndexList rows = ui->table->selectionModel()->selectedRows();
    const QList<QKApplicationLogRule *> rules = appLog()->_rules();
    if (rows.isEmpty() || rows.constFirst().row() >= rules.size())
        return;
    appLog()->_removeRule(rules[rows.constFirst().row()]);
    reloadTable();
}

void QKHelpDeskDebug::tableViewSelectionDidChange()
{
    ui->removeButton->setEnabled(ui->table->selectionModel()->hasSelection());
}

void QKHelpDeskDebug::reloadTable()
{
    m_model->reloadData();
    // A reset clears the selection without a selection change.
    tableViewSelectionDidChange();
}
