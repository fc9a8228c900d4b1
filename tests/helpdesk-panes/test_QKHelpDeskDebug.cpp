#include "PanesTestSupport.h"
#include "QKHelpDeskDebug.h"
#include "QKHelpDeskDebugRulesModel.h"
#include "QKHelpDeskWindow.h"

#include <QKApplicationLog.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QUrl>

#include <gtest/gtest.h>

using namespace PanesTest;

namespace {

/** The shared log's rules as "domain threshold active|inactive". */
QStringList rules()
{
    QStringList list;
    for (const QKApplicationLogRule *rule : QKApplicationLog::sharedLog()->_rules())
        list << QStringLiteral("%1 %2 %3")
                    .arg(rule->domain())
                    .arg(rule->threshold())
                    .arg(rule->active() ? "active" : "inactive");
    return list;
}

} // namespace

TEST(QKHelpDeskDebug, editsTheSharedLogAndTheSettingsSurviveARestartOfTheLog)
{
    QKHelpDesk *helpDesk = openWithoutSite("Debug");
    ASSERT_NE(helpDesk, nullptr);
    auto *pane = paneOf<QKHelpDeskDebug>(helpDesk);
    QKApplicationLog *log = QKApplicationLog::sharedLog();
    auto *enabled = pane->findChild<QCheckBox *>("enabledButton");
    auto *popup = pane->findChild<QComboBox *>("defaultThresholdPopup");
    ASSERT_TRUE(enabled->isChecked());
    ASSERT_EQ(popup->count(), 5);
    EXPECT_EQ(popup->currentIndex(), int(QKApplicationLog::Warning));
    enabled->click();
    popup->setCurrentIndex(1);
    emit popup->activated(1);
    EXPECT_FALSE(log->_active());
    EXPECT_EQ(log->_defaultThreshold(), 1u);

    // New rules start at the default level; cancelled and nameless ones are not added.
    QDialog *sheet = pane->addRulePanel();
    for (const auto &[domain, button] : {std::pair{"HDSupport", "addButton"},
                                         {"QKRemoteControl", "cancelButton"},
                                         {"", "addButton"}}) {
        pane->findChild<QPushButton *>("addRuleButton")->click();
        EXPECT_TRUE(sheet->isVisible());
        sheet->findChild<QLineEdit *>("domainText")->setText(domain);
        sheet->findChild<QPushButton *>(button)->click();
        EXPECT_FALSE(sheet->isVisible());
    }
    EXPECT_EQ(rules(), QStringList{"HDSupport 1 active"});

    QAbstractItemModel *model = pane->findChild<QTableView *>("table")->model();
    ASSERT_EQ(model->rowCount(), 1);
    EXPECT_EQ(model->data(model->index(0, 1)).toString(), "HDSupport");
    EXPECT_EQ(model->data(model->index(0, 0), Qt::CheckStateRole).toInt(), Qt::Checked);
    model->setData(model->index(0, 2), 4);
    model->setData(model->index(0, 0), Qt::Unchecked, Qt::CheckStateRole);
    EXPECT_EQ(rules(), QStringList{"HDSupport 4 inactive"});
    EXPECT_EQ(model->data(model->index(0, 2)).toUInt(), 4u);

    // An edit of the domain changes nothing but stores what the rule holds.
    log->_rules().constFirst()->setThreshold(2);
    model->setData(model->index(0, 1), "Other");
    QKApplicationLog::resetSharedLog();
    log = QKApplicationLog::sharedLog();
    EXPECT_FALSE(log->_active());
    EXPECT_EQ(log->_defaultThreshold(), 1u);
    EXPECT_EQ(rules(), QStringList{"HDSupport 2 inactive"});
    EXPECT_EQ(model->data(model->index(0, 2)).toUInt(), 2u) << "the table follows the new log";

    QKHelpDeskDebug reloaded;
    reloaded.awakeFromNib();
    EXPECT_FALSE(reloaded.findChild<QCheckBox *>("enabledButton")->isChecked());
    EXPECT_EQ(reloaded.findChild<QComboBox *>("defaultThresholdPopup")->currentIndex(), 1);
    EXPECT_EQ(reloaded.model()->objectValue("threshold", 0), QVariant(2u));
}

TEST(QKHelpDeskDebug, removalNeedsASelectionAndTheLogOpensInTheViewer)
{
    QKApplicationLog::sharedLog()->_setThreshold(4, "A");
    QKApplicationLog::sharedLog()->_setThreshold(0, "B");
    QKHelpDeskDebug pane;
    pane.awakeFromNib();
    auto *table = pane.findChild<QTableView *>("table");
    auto *remove = pane.findChild<QPushButton *>("removeButton");
    EXPECT_FALSE(remove->isEnabled());
    table->selectRow(1);
    EXPECT_TRUE(remove->isEnabled());
    remove->click();
    EXPECT_FALSE(remove->isEnabled());
    EXPECT_EQ(table->model()->rowCount(), 1);
    QKApplicationLog::resetSharedLog();
    EXPECT_EQ(rules(), QStringList{"A 4 active"});

    OpenedURLs opened;
    pane.findChild<QPushButton *>("openLogButton")->click();
    EXPECT_EQ(
        opened,
        QStringList{QUrl::fromLocalFile(QKApplicationLog::sharedLog()->logFilePath()).toString()});
}
