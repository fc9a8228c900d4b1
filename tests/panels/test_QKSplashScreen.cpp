#include "PanelTestSupport.h"

#include <QKApplication.h>
#include <QKSplashScreen.h>

#include <QApplication>
#include <QLabel>
#include <QPointer>
#include <QScreen>
#include <QTest>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace {

QLabel *field(const QKSplashScreen *splash, const char *name)
{
    return splash->contentView()->findChild<QLabel *>(QString::fromLatin1(name));
}

// What the window system shows of @p window: on the offscreen platform, its backing store.
QImage onScreen(QWidget *window)
{
    return window->screen()->grabWindow(window->winId()).toImage();
}

QList<QWidget *> visibleWindows()
{
    QList<QWidget *> visible;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible())
            visible << widget;
    }
    return visible;
}

void releaseDeletedObjects()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

TEST(QKSplashScreen, versionSpellsOutOneKindOfReleaseTag)
{
    const std::pair<const char *, const char *> cases[] = {
        {"3.1pb2", "3.1 Public Beta 2"},
        {"2.0b4", "2.0 Beta 4"},
        {"1.0rc1", "1.0 Release Candidate 1"},
        {"1.0", "1.0"},
        {"1.0a1b2", "1.0a1 Beta 2"},
        {"2.0a3", "2.0 Alpha 3"},
        {"1.0b1b2", "1.0 Beta 1 Beta 2"},
        {"1.0RC1", "1.0RC1"},
        {"", ""},
    };
    for (const auto &[version, expected] : cases)
        EXPECT_EQ(QKSplashScreen::versionString(QString::fromUtf8(version)),
                  QString::fromUtf8(expected))
            << version;
}

TEST(QKSplashScreen, copyrightEndsAtTheCurrentYear)
{
    const std::pair<const char *, const char *> cases[] = {
        {"Copyright © 2003-2010 Velmora", "Copyright © 2003-2031 Velmora"},
        {"© 2003 – 2010 Velmora. All rights reserved.",
         "© 2003 – 2031 Velmora. All rights reserved."},
        {"Copyright © 2003 Velmora", "Copyright © 2003-2031 Velmora"},
        {"Copyright © 2031 Velmora", "Copyright © 2031 Velmora"},
        {"Velmora", "Velmora"},
        {"", "Copyright © 2031 Velmora"},
    };
    for (const auto &[line, expected] : cases)
        EXPECT_EQ(QKSplashScreen::copyrightString(QString::fromUtf8(line), 2031),
                  QString::fromUtf8(expected))
            << line;
}

TEST(QKSplashScreen, fieldsComeFromTheHostAndTheClock)
{
    QKSplashScreen::setClock(
        [] { return QDateTime(QDate(2031, 3, 1), QTime(9, 0), QTimeZone::utc()); });
    const QKSplashScreen *splash = QKSplashScreen::splashScreen();
    EXPECT_EQ(QKSplashScreen::splashScreen(), splash);
    EXPECT_EQ(field(splash, "applicationNameText")->text(), QStringLiteral("Test Host"));
    EXPECT_EQ(field(splash, "versionText")->text(), QStringLiteral("2.5 Beta 1"));
    EXPECT_EQ(field(splash, "copyrightText")->text(), QStringLiteral("Copyright © 2031 Velmora"));
    EXPECT_TRUE(field(splash, "actionText")->text().isEmpty());
    EXPECT_FALSE(splash->isVisible());
}

TEST(QKSplashScreen, actionReachesTheScreenBeforeTheEventLoopRuns)
{
    QKSplashScreen::setFadeDuration(0);
    QKSplashScreen *splash = QKSplashScreen::splashScreen();
    splash->open();
    ASSERT_TRUE(splash->window()->windowHandle()->isExposed());
    const QImage before = onScreen(splash->window());
    ASSERT_FALSE(before.isNull());

    splash->setActionText(QStringLiteral("Locating Audio Units"));
    EXPECT_EQ(field(splash, "actionText")->text(), QStringLiteral("Locating Audio Units..."));
    const QImage after = onScreen(splash->window());
    const QRect line = field(splash, "actionText")->geometry();
    EXPECT_NE(before.copy(line), after.copy(line));
    EXPECT_EQ(before.copy(0, 0, after.width(), line.top()),
              after.copy(0, 0, after.width(), line.top()));
    PanelTestSupport::saveArtifact(after, QStringLiteral("splash-screen-action"));
}

TEST(QKSplashScreen, classLevelActionNeedsAnApplicationThatUsesIt)
{
    ASSERT_FALSE(QKApplication::sharedApplication()->usesSplashScreen());
    QKSplashScreen::setAction(QStringLiteral("Validating 'Reverb'"));
    EXPECT_TRUE(QApplication::topLevelWidgets().isEmpty());

    bool ran = false;
    QKApplication::sharedApplication()->finishLaunching([&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_TRUE(QApplication::topLevelWidgets().isEmpty());
}

TEST(QKSplashScreen, openTwiceShowsOneWindowAndCloseReleasesTheSplash)
{
    QKSplashScreen::setFadeDuration(0);
    QPointer<QKSplashScreen> splash = QKSplashScreen::splashScreen();
    splash->open();
    const QPoint position = splash->window()->pos();
    splash->window()->move(position + QPoint(30, 30));
    splash->open();
    EXPECT_EQ(visibleWindows(), QList<QWidget *>({splash->window()}));
    EXPECT_EQ(splash->window()->pos(), position + QPoint(30, 30));

    splash->close();
    EXPECT_FALSE(splash->isVisible());
    releaseDeletedObjects();
    EXPECT_TRUE(splash.isNull());
    EXPECT_TRUE(QApplication::topLevelWidgets().isEmpty());
    EXPECT_FALSE(QKSplashScreen::splashScreen()->isVisible());
}

TEST(QKSplashScreen, fadeOutEndsInClosingAndReleasing)
{
    QKSplashScreen::setFadeDuration(60);
    QPointer<QKSplashScreen> splash = QKSplashScreen::splashScreen();
    splash->open();
    QWidget *window = splash->window();
    splash->close();
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->windowOpacity(), 1.0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return splash.isNull(); }));
}

TEST(QKSplashScreen, launchWorkRunsWithTheSplashOnScreen)
{
    QKSplashScreen::setFadeDuration(0);
    bool visibleDuringWork = false;
    QString actionDuringWork;
    QKSplashScreen::finishLaunching([&] {
        QKSplashScreen *splash = QKSplashScreen::splashScreen();
        visibleDuringWork = splash->isVisible();
        splash->setActionText(QStringLiteral("Loading instruments"));
        actionDuringWork = field(splash, "actionText")->text();
    });
    EXPECT_TRUE(visibleDuringWork);
    EXPECT_EQ(actionDuringWork, QStringLiteral("Loading instruments..."));
    EXPECT_TRUE(visibleWindows().isEmpty());
}

TEST(QKSplashScreen, screenshotShowsTheRoundedGradient)
{
    QKSplashScreen *splash = QKSplashScreen::splashScreen();
    splash->open();
    const QImage shot = splash->window()->grab().toImage().convertToFormat(QImage::Format_ARGB32);
    PanelTestSupport::saveArtifact(shot, QStringLiteral("splash-screen"));

    ASSERT_EQ(shot.size(), QSize(400, 220));
    for (const QPoint corner : {QPoint(0, 0), QPoint(399, 0), QPoint(0, 219), QPoint(399, 219)})
        EXPECT_EQ(qAlpha(shot.pixel(corner)), 0) << corner.x() << "," << corner.y();
    // Black held low, lighter towards the top: white 0.15 half way, 0.3 at the top.
    const QRgb centre = shot.pixel(10, 110);
    EXPECT_EQ(qAlpha(centre), 255);
    EXPECT_NEAR(qRed(centre), 38, 6);
    EXPECT_LE(qRed(shot.pixel(10, 210)), 4);
    EXPECT_NEAR(qRed(shot.pixel(10, 2)), 76, 6);
    EXPECT_LT(qRed(shot.pixel(10, 160)), 12); // the 0.95 midpoint keeps it nearly black
}
