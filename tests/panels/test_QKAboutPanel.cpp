#include "PanelTestSupport.h"
#include "QKClock.h"
#include "QKTestEnvironment.h"

#include <QKAboutPanel.h>
#include <QKAlert.h>
#include <QKBundle.h>
#include <QKPropertyList.h>
#include <QKWorkspace.h>

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QLibraryInfo>
#include <QMessageBox>
#include <QPointer>
#include <QProcess>
#include <QResource>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <QTimer>
#include <QUrl>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

const QDateTime g_now(QDate(2031, 3, 1), QTime(9, 0), QTimeZone::utc());

// A bundle of the host's kind in a folder of its own: version, build, copyright and the
// legal document, but no acknowledgements.
class QKAboutPanelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QKPropertyList::writeFile(
            QVariantMap{{u"CFBundleShortVersionString"_s, u"3.1pb2"_s},
                        {u"CFBundleVersion"_s, u"3102"_s},
                        {u"NSHumanReadableCopyright"_s, u"Copyright © 2003-2010 Velmora"_s}},
            path("Info.plist")));
        ASSERT_TRUE(QFile::copy(QKTestEnvironment::sourcePath(u"panels/data/legal.pdf"_s),
                                path("legal.pdf")));
        QKAboutPanel::setBundle(&m_bundle);
        QKClock::setClock([] { return g_now; });
        QKAboutPanel::setFadeDuration(0);
        QKWorkspace::setOpener([this](const QUrl &url) {
            m_opened << url;
            return true;
        });
    }
    void TearDown() override { QKAboutPanel::setBundle(nullptr); }

    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    template<typename T = QLabel> static T *child(const char *name)
    {
        return QKAboutPanel::aboutPanel()->view()->findChild<T *>(QString::fromLatin1(name));
    }

    QTemporaryDir m_folder;
    QKBundle m_bundle{{m_folder.path()}};
    QList<QUrl> m_opened;
};

} // namespace

TEST(QKAboutPanelBirthday, countsYearsOf356Days)
{
    const QDateTime birth(QDate(2006, 7, 22), QTime(19, 30), QTimeZone(6 * 3600));
    const std::pair<double, const char *> ages[] = {
        {356, "1 year and 0 months"},
        {712, "2 years and 0 months"},
        {178, "0 years and 6 months"},
        // 11.7 months are printed rounded, beside a year that is not carried.
        {356 * (1 + 11.7 / 12), "1 year and 12 months"},
        // Counted in years of 365 days this would be 4 years.
        {356 * 5 + 1, "5 years and 0 months"},
    };
    // Counted from the instant, whatever the time zone of now.
    for (const auto &[days, age] : ages) {
        const QDateTime now = birth.addMSecs(qint64(days * 86400000)).toTimeZone(QTimeZone::utc());
        EXPECT_EQ(QKAboutPanel::birthdayString(now),
                  u"Kestrin is %1 old today!"_s.arg(QLatin1String(age)));
    }
}

TEST_F(QKAboutPanelTest, fieldsComeFromTheBundleAndDocumentsOpenAsFilesWhenPresent)
{
    EXPECT_EQ(child("appNameText")->text(), u"Test Host"_s);
    EXPECT_EQ(child("versionText")->text(), u"3.1 Public Beta 2"_s);
    EXPECT_EQ(child("buildText")->text(), u"3102"_s);
    EXPECT_EQ(child("copyrightText")->text(), u"Copyright © 2003-2031 Velmora"_s);
    auto *legal = child<QAbstractButton>("legalButton");
    auto *acknowledgements = child<QAbstractButton>("acknowledgementsButton");
    EXPECT_EQ(legal->text(), u"Legal"_s);
    EXPECT_EQ(acknowledgements->text(), u"Acknowledgements"_s);
    EXPECT_TRUE(legal->isEnabled());
    EXPECT_FALSE(acknowledgements->isEnabled());

    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    panel->open();
    QTest::mouseClick(legal, Qt::LeftButton);
    panel->openAcknowledgements();
    EXPECT_EQ(m_opened, QList<QUrl>({QUrl::fromLocalFile(path("legal.pdf"))}));
    EXPECT_TRUE(panel->isVisible());
    m_opened.clear();

    // The host's documents usually live in its compiled resources, which no viewer can read.
    ASSERT_TRUE(QKTestEnvironment::writeAll(path("documents.qrc"),
                                            "<RCC><qresource prefix=\"/\"><file>Info.plist</file>"
                                            "<file>legal.pdf</file></qresource></RCC>"));
    const QString rcc = QLibraryInfo::path(QLibraryInfo::LibraryExecutablesPath) + u"/rcc"_s;
    ASSERT_EQ(QProcess::execute(
                  rcc, {u"--binary"_s, path("documents.qrc"), u"-o"_s, path("documents.rcc")}),
              0);
    ASSERT_TRUE(QResource::registerResource(path("documents.rcc"), u"/documents"_s));
    QKBundle compiled({u":/documents"_s});
    QKAboutPanel::setBundle(&compiled);
    panel->openLegal();
    ASSERT_EQ(m_opened.size(), 1);
    const QString opened = m_opened.first().toLocalFile();
    EXPECT_TRUE(opened.endsWith(u"/legal.pdf"_s) && !opened.startsWith(u':'))
        << opened.toStdString();
    EXPECT_EQ(QKTestEnvironment::readAll(opened), QKTestEnvironment::readAll(path("legal.pdf")));
}

TEST_F(QKAboutPanelTest, extraLineNeedsControlAltAndShift)
{
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    // Modifiers held down in a window of their own, as the window system reports them.
    QWidget keyboard;
    keyboard.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&keyboard));
    const auto openHolding = [&](Qt::KeyboardModifiers modifiers) {
        QTest::keyPress(keyboard.windowHandle(), Qt::Key_Shift, modifiers);
        panel->open();
        QTest::keyRelease(keyboard.windowHandle(), Qt::Key_Shift, {});
    };
    QLabel *extra = child("additionalText");
    openHolding(Qt::ControlModifier | Qt::AltModifier);
    EXPECT_TRUE(extra->text().isEmpty());
    EXPECT_EQ(extra->textInteractionFlags(), Qt::NoTextInteraction);
    panel->close();
    openHolding(Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier);
    EXPECT_EQ(extra->text(), QKAboutPanel::birthdayString(g_now));
    EXPECT_TRUE(extra->textInteractionFlags() & Qt::TextSelectableByMouse);
    // Opening while visible changes nothing, not even the extra line.
    panel->open();
    EXPECT_FALSE(extra->text().isEmpty());
    panel->close();
    panel->open();
    EXPECT_TRUE(extra->text().isEmpty());
}

TEST_F(QKAboutPanelTest, clickOnTheBackgroundClosesAndFadesKeepTheWindow)
{
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    QWidget *window = panel->window();
    panel->open();
    QTest::mouseClick(child("copyrightText"), Qt::LeftButton);
    EXPECT_FALSE(window->isVisible());
    panel->open();
    QTest::mouseClick(panel->view(), Qt::LeftButton, {}, QPoint(8, 8));
    EXPECT_FALSE(panel->isVisible());

    QKAboutPanel::setFadeDuration(60);
    panel->open();
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->windowOpacity(), 0.0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->windowOpacity() == 1.0; }));
    panel->close();
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window->isVisible(); }));
    EXPECT_EQ(window->windowOpacity(), 0.0);
    EXPECT_EQ(panel->window(), window);
}

TEST_F(QKAboutPanelTest, goingAwayUnderAnAlertLeavesTheAlert)
{
    // An alert raised while About is in front must not belong to it: the panel is deleted
    // inside the alert's modal loop, as when the application ends there.
    QKAlert::setAnswerer({});
    QPointer<QKAboutPanel> panel = QKAboutPanel::aboutPanel();
    panel->open();
    QApplication::setActiveWindow(panel->window());
    QTimer::singleShot(0, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        delete panel.data();
        QTimer::singleShot(0, box, [box] { box->buttons().constLast()->click(); });
    });
    EXPECT_EQ(QKAlert::runModal(u"Quit now?"_s, {}, {u"Quit"_s, u"Cancel"_s}), 1);
    EXPECT_TRUE(panel.isNull());
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 0; });
}

TEST_F(QKAboutPanelTest, screenshotShowsGradientSeparatorAndButtons)
{
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    panel->open();
    const QImage shot = PanelTestSupport::screenshot(panel->window(), u"about-panel"_s);
    ASSERT_EQ(shot.size(), QSize(340, 260));
    EXPECT_TRUE(PanelTestSupport::cornersAreTransparent(shot));
    EXPECT_NEAR(qRed(shot.pixel(10, 130)), 38, 6);
    EXPECT_EQ(qAlpha(shot.pixel(10, 130)), 255);
    // The separator: dark grey on one pixel row, 49.5 above the bottom, 20 in from each side.
    EXPECT_NEAR(qRed(shot.pixel(170, 210)), 85, 4);
    EXPECT_LT(qRed(shot.pixel(170, 208)), 20);
    EXPECT_LT(qRed(shot.pixel(10, 210)), 20);
    // Light grey title on the enabled button, dark grey on the disabled one: the brightest
    // opaque pixel of each.
    const auto brightest = [&shot](const char *button) {
        int level = 0;
        const QRect area = child<QWidget>(button)->geometry().intersected(shot.rect());
        for (int y = area.top(); y <= area.bottom(); ++y) {
            for (int x = area.left(); x <= area.right(); ++x) {
                const QRgb pixel = shot.pixel(x, y);
                if (qAlpha(pixel) == 255)
                    level = std::max({level, qRed(pixel), qGreen(pixel), qBlue(pixel)});
            }
        }
        return level;
    };
    EXPECT_GE(brightest("legalButton"), 150);
    EXPECT_LE(brightest("acknowledgementsButton"), 95);
}
