#include "QKAlert.h"
#include "QKTestSupport.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

TEST(QKAlert, answererSeesEveryAlertInOrder)
{
    QStringList answeredMessages;
    QKAlert::setAnswerer([&](const QKAlertRequest &request) {
        answeredMessages << request.message;
        return request.buttons.size() - 1;
    });
    EXPECT_EQ(QKAlert::runModal("First?", "Details", {"Yes", "No"}), 1);
    EXPECT_EQ(QKAlert::runModal("Second", QString()), -1);
    const QList<QKAlertRequest> shown = QKAlert::shownAlerts();
    ASSERT_EQ(shown.size(), 2);
    EXPECT_EQ(shown.at(0).informativeText, u"Details"_s);
    EXPECT_EQ(shown.at(0).buttons, QStringList({"Yes", "No"}));
    EXPECT_EQ(answeredMessages, QStringList({"First?", "Second"}));
}

TEST(QKAlert, messageBoxShowsTextsAndAnswersThePressedButtonIndex)
{
    QKAlert::setAnswerer({});
    // Press the second button of the real message box once it is up.
    QTimer::singleShot(0, [] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(box->text(), u"Report it?"_s);
        EXPECT_EQ(box->informativeText(), u"It helps."_s);
        for (QAbstractButton *button : box->buttons()) {
            if (button->text() == u"No"_s)
                button->click();
        }
    });
    EXPECT_EQ(QKAlert::runModal("Report it?", "It helps.", {"Yes", "No"}), 1);
}

TEST(QKFilePanels, savePanelAddsTheRequiredType)
{
    QKFilePanels::setAnswerer([](const QKFilePanelRequest &, bool save) {
        return save ? QStringList{"/tmp/export"} : QStringList{"/tmp/a", "/tmp/b"};
    });
    QKFilePanelRequest request;
    request.fileTypes = {"qkshortcuts"};
    EXPECT_EQ(QKFilePanels::runSavePanel(request), u"/tmp/export.qkshortcuts"_s);
    EXPECT_EQ(QKFilePanels::runOpenPanel(request).size(), 2);
    QKFilePanels::setAnswerer([](const QKFilePanelRequest &, bool) { return QStringList(); });
    EXPECT_TRUE(QKFilePanels::runSavePanel(request).isEmpty());
}
