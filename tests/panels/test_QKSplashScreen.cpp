#include "PanelTestSupport.h"
#include "QKClock.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKSplashScreen.h>

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QScreen>
#include <QTest>
#include <QTimeZone>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

QLabel *field(const QKSplashScreen *splash, const char *name)
{
    return splash->contentView()->findChild<QLabel *>(QString::fromLatin1(name));
}

QList<QWidget *> visibleWindows()
{
    QList<QWidget *> visible = QApplication::topLevelWidgets();
    visible.removeIf([](const QWidget *widget) { return !widget->isVisible(); });
    return visible;
}

} // namespace

TEST(QKSplashScreen, versionAndCopyrightLinesSpellOutTheirParts)
{
    const std::pair<const char *, const char *> versions[] = {
        {"3.1pb2", "3.1 Public Beta 2"},
        {"2.0b4", "2.0 Beta 4"},
        {"1.0rc1", "1.0 Release Candidate 1"},
        {"1.0", "1.0"},
        // Only the first kind of tag found is spelled out.
        {"1.0a1b2", "1.0a1 Beta 2"},
        {"2.0a3", "2.0 Alpha 3"},
        {"1.0b1b2", "1.0 Beta 1 Beta 2"},
        {"1.0RC1", "1.0RC1"},
        {"", ""},
    };
    for (const auto &[version, expected] : versions)
        EXPECT_EQ(QKSplashScreen::versionString(QString::fromUtf8(version)), expected) << version;

    const std::pair<const char *, const char *> copyrights[] = {
        {"Copyright © 2003-2010 Velmora", "Copyright © 2003-2031 Velmora"},
        {"© 2003 – 2010 Velmora. All rights reserved.",
         "© 2003 – 2031 Velmora. All rights reserved."},
        {"Copyright © 2003 Velmora", "Copyright © 2003-2031 Velmora"},
        {"Copyright © 2031 Velmora", "Copyright © 2031 Velmora"},
        {"Velmora", "Velmora"},
        {"", "Copyright © 2031 Velmora"},
    };
    for (const auto &[line, expected] : copyrights) {
        EXPECT_EQ(QKSplashScreen::copyrightString(QString::fromUtf8(line), 2031),
                  QString::fromUtf8(expected))
            << line;
    }
}

TEST(QKSplashScreen, fieldsComeFromTheHostAndActionsReachTheScreenAtOnce)
{
    QKClock::setClock([] { return QDateTime(QDate(2031, 3, 1), QTime(9, 0), QTimeZone::utc()); });
    QKSplashScreen *splash = QKSplashScreen::splashScreen();
    EXPECT_EQ(field(splash, "applicationNameText")->text(), u"Test Host"_s);
    EXPECT_EQ(field(splash, "versionText")->text(), u"2.5 Beta 1"_s);
    EXPECT_EQ(field(splash, "copyrightText")->text(), u"Copyright © 2031 Velmora"_s);
    EXPECT_TRUE(field(splash, "actionText")->text().isEmpty());
    EXPECT_FALSE(splash->isVisible());

    // Launch work keeps the event loop from running: the new action must be on the screen
    // (on the offscreen platform, the backing store) before setActionText() returns.
    splash->open();
    ASSERT_TRUE(splash->window()->windowHandle()->isExposed());
    const auto onScreen = [splash] {
        return splash->window()->screen()->grabWindow(splash->window()->winId()).toImage();
    };
    const QImage before = onScreen();
    ASSERT_FALSE(before.isNull());
    splash->setActionText(u"Locating Audio Units"_s);
    EXPECT_EQ(field(splash, "actionText")->text(), u"Locating Audio Units..."_s);
    const QImage after = onScreen();
    const QRect line = field(splash, "actionText")->geometry();
    EXPECT_NE(before.copy(line), after.copy(line));
    EXPECT_EQ(before.copy(0, 0, after.width(), line.top()),
              after.copy(0, 0, after.width(), line.top()));
    PanelTestSupport::saveArtifact(after, u"splash-screen-action"_s);
}

TEST(QKSplashScreen, launchWorkRunsWithTheSplashOnlyWhenTheApplicationUsesIt)
{
    ASSERT_FALSE(QKApplication::sharedApplication()->usesSplashScreen());
    QKSplashScreen::setAction(u"Validating 'Reverb'"_s);
    bool ran = false;
    QKApplication::sharedApplication()->finishLaunching([&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_TRUE(QApplication::topLevelWidgets().isEmpty());

    QKSplashScreen::setFadeDuration(0);
    QString actionDuringWork;
    QKSplashScreen::finishLaunching([&] {
        QKSplashScreen *splash = QKSplashScreen::splashScreen();
        EXPECT_TRUE(splash->isVisible());
        splash->setActionText(u"Loading instruments"_s);
        actionDuringWork = field(splash, "actionText")->text();
    });
    EXPECT_EQ(actionDuringWork, u"Loading instruments..."_s);
    EXPECT_TRUE(visibleWindows().isEmpty());
}

TEST(QKSplashScreen, openTwiceShowsOneWindowAndCloseReleasesTheSplash)
{
    QKSplashScreen::setFadeDuration(0);
    QPointer<QKSplashScreen> splash = QKSplashScreen::splashScreen();
    splash->open();
    const QPoint moved = splash->window()->pos() + QPoint(30, 30);
    splash->window()->move(moved);
    splash->open();
    EXPECT_EQ(visibleWindows(), QList<QWidget *>({splash->window()}));
    EXPECT_EQ(splash->window()->pos(), moved);

    splash->close();
    EXPECT_FALSE(splash->isVisible());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(splash.isNull());
    EXPECT_TRUE(QApplication::topLevelWidgets().isEmpty());
    EXPECT_FALSE(QKSplashScreen::splashScreen()->isVisible());

    // With a fade, the window stays until the fade ends.
    QKSplashScreen::setFadeDuration(60);
    splash = QKSplashScreen::splashScreen();
    splash->open();
    splash->close();
    EXPECT_TRUE(splash->window()->isVisible());
    EXPECT_EQ(splash->window()->windowOpacity(), 1.0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return splash.isNull(); }));
}

TEST(QKSplashScreen, closingWhileALaunchQuestionIsUpLeavesTheQuestion)
{
    // The crash-report question comes up during launch work, with the splash in front; the
    // splash releases itself inside the question's modal loop.
    QKAlert::setAnswerer({});
    QKSplashScreen::setFadeDuration(0);
    QPointer<QKSplashScreen> splash = QKSplashScreen::splashScreen();
    int answer = -1;
    QKSplashScreen::finishLaunching([&] {
        QApplication::setActiveWindow(splash->window());
        QTimer::singleShot(0, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            splash->close();
            QTimer::singleShot(0, box, [box] { box->buttons().constFirst()->click(); });
        });
        answer = QKAlert::runModal(u"Send a crash report?"_s, {}, {u"Yes"_s, u"No"_s});
    });
    EXPECT_EQ(answer, 0);
    EXPECT_TRUE(splash.isNull());
}

TEST(QKSplashScreen, screenshotShowsTheRoundedGradient)
{
    QKSplashScreen *splash = QKSplashScreen::splashScreen();
    splash->open();
    const QImage shot = PanelTestSupport::screenshot(splash->window(), u"splash-screen"_s);
    ASSERT_EQ(shot.size(), QSize(400, 220));
    EXPECT_TRUE(PanelTestSupport::cornersAreTransparent(shot));
    // Black held low, lighter towards the top: white 0.15 half way, 0.3 at the top.
    EXPECT_EQ(qAlpha(shot.pixel(10, 110)), 255);
    EXPECT_NEAR(qRed(shot.pixel(10, 110)), 38, 6);
    EXPECT_LE(qRed(shot.pixel(10, 210)), 4);
    EXPECT_NEAR(qRed(shot.pixel(10, 2)), 76, 6);
    EXPECT_LT(qRed(shot.pixel(10, 160)), 12); // the 0.95 midpoint keeps it nearly black
}
