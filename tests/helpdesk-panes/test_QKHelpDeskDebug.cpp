#include "PanesTestSupport.h"
#include "QKHelpDeskDebug.h"
#include "QKHelpDeskDebugRulesModel.h"
#include "QKHelpDeskWindow.h"

#include <QKApplicationLog.h>
#include <QKWorkspace.h>

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

/** Types @p domain into the add-rule sheet and presses @p button there. */
void addRule(QKHelpDeskDebug *pane, const QString &domain, const char *button)
{
    pane->findChild<QPushButton *>("addRuleButton")->click();
    QDialog *sheet = pane->addRulePanel();
    EXPECT_TRUE(sheet->isVisible());
    sheet->findChild<QLineEdit *>("domainText")->setText(domain);
    sheet->findChild<QPushButton *>(button)->click();
    EXPECT_FALSE(sheet->isVisible());
}

} // namespace

TEST(QKHelpDeskDebug, editsTheSharedLogAndTheSettingsSurviveARestartOfTheLog)
{
    QKHelpDesk *helpDesk = openWithoutSite("Debug");
    ASSERT_NE(helpDesk, nullptr);
    auto *pane = paneOf<QKHelpDeskDebug>(helpDesk);
    EXPECT_EQ(pane->addRulePanel()->windowModality(), Qt::WindowModal);
    EXPECT_EQ(pane->addRulePanel()->parentWidget()->window(), helpDesk->window());

    auto *enabled = pane->findChild<QCheckBox *>("enabledButton");
    auto *popup = pane->findChild<QComboBox *>("defaultThresholdPopup");
    ASSERT_TRUE(enabled->isChecked());
    ASSERT_EQ(popup->count(), 5);
    EXPECT_EQ(popup->itemText(0), QKApplicationLog::levelName(0));
    EXPECT_EQ(popup->itemText(4), QKApplicationLog::levelName(4));
    EXPECT_EQ(popup->currentIndex(), int(QKApplicationLog::Warning));

    enabled->click();
    popup->setCurrentIndex(1);
    emit popup->activated(1);
    EXPECT_FALSE(QKApplicationLog::sharedLog()->_active());
    EXPECT_EQ(QKApplicationLog::sharedLog()->_defaultThreshold(), 1u);

    // New rules start at the default level; cancelled and nameless ones are not added.
    addRule(pane, "HDSupport", "addButton");
    addRule(pane, "QKRemoteControl", "cancelButton");
    addRule(pane, "", "addButton");
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
    QKApplicationLog::sharedLog()->_rules().constFirst()->setThreshold(2);
    model->setData(model->index(0, 1), "Other");

    QKApplicationLog::resetSharedLog();
    EXPECT_FALSE(QKApplicationLog::sharedLog()->_active());
    EXPECT_EQ(QKApplicationLog::sharedLog()->_defaultThreshold(), 1u);
    EXPECT_EQ(rules(), QStringList{"HDSupport 2 inactive"});
    EXPECT_EQ(model->data(model->index(0, 2)).toUInt(), 2u) << "the table follows the new log";

    QKHelpDeskDebug reloaded;
    reloaded.awakeFromNib();
    EXPECT_FALSE(reloaded.findChild<QCheckBox *>("enabledButton")->isChecked());
    EXPECT_EQ(reloaded.findChild<QComboBox *>("defaultThresholdPopup")->currentIndex(), 1);
    EXPECT_EQ(reloaded.model()->objectValue("threshold", 0), QVariant(2u));
    EXPECT_FALSE(reloaded.model()->objectValue("level", 0).isValid());
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

    QList<QUrl> opened;
    QKWorkspace::setOpener([&](const QUrl &url) {
        opened << url;
        return true;
    });
    pane.findChild<QPushButton *>("openLogButton")->click();
    QKWorkspace::setOpener({});
    EXPECT_EQ(opened,
              QList<QUrl>{QUrl::fromLocalFile(QKApplicationLog::sharedLog()->logFilePath())});
}
