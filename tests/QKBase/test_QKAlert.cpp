#include "QKAlert.h"
#include "QKApplication.h"
#include "QKTestSupport.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

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

TEST(QKAlert, outlivesTheWindowInFrontAndIsTitledByTheApplication)
{
    QKAlert::setAnswerer({});
    // A splash screen is in front when the launch asks its first question, and the launch
    // work deletes it while the question is up.
    auto *splash = new QWidget(nullptr, Qt::SplashScreen);
    splash->show();
    QApplication::setActiveWindow(splash);
    QTimer::singleShot(0, [splash] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(box->windowTitle(), QKApplication::currentName());
        EXPECT_EQ(box->icon(), QMessageBox::Information);
        delete splash;
        QTimer::singleShot(0, box, [box] { box->buttons().constFirst()->click(); });
    });
    QKAlertRequest request;
    request.message = u"Up to date"_s;
    request.buttons = {u"OK"_s, u"Details"_s};
    request.style = QKAlertRequest::Style::Informational;
    EXPECT_EQ(QKAlert::runModal(request), 0);
}

TEST(QKFilePanels, savePanelAddsTheRequiredType)
{
    QKFilePanels::setAnswerer([](const QKFilePanelRequest &, bool save) {
        return save ? QStringList{"/tmp/export"} : QStringList{"/tmp/a", "/tmp/b"};
    });
    QKFilePanelRequest request;
    request.fileTypes = {"qkshortcuts"};
    EXPECT_EQ(QKFilePanels::runSavePanel(request), u"/tmp/export.qkshortcuts"_s);
    QKFilePanels::setAnswerer([](const QKFilePanelRequest &, bool) { return QStringList(); });
    EXPECT_TRUE(QKFilePanels::runSavePanel(request).isEmpty()) << "cancelled";
}
