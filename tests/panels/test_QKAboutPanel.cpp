#include "PanelTestSupport.h"
#include "QKClock.h"
#include "QKTestEnvironment.h"

#include <QKAboutPanel.h>
#include <QKBundle.h>
#include <QKPropertyList.h>
#include <QKWorkspace.h>

#include <QAbstractButton>
#include <QFile>
#include <QLabel>
#include <QLibraryInfo>
#include <QProcess>
#include <QResource>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <QUrl>

#include <gtest/gtest.h>

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
    void TearDown() override
    {
        QKWorkspace::setOpener({});
        QKAboutPanel::setBundle(nullptr);
    }

    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    template<typename T = QLabel> static T *child(const char *name)
    {
        return QKAboutPanel::aboutPanel()->view()->findChild<T *>(QString::fromLatin1(name));
    }

    QTemporaryDir m_folder;
    QKBundle m_bundle{{m_folder.path()}};
    QList<QUrl> m_opened;
};

// Holds down the keys of @p modifiers in a window of its own, as the window system reports
// them, so the application sees them as the current event's modifiers.
class HeldModifiers
{
public:
    explicit HeldModifiers(Qt::KeyboardModifiers modifiers)
    {
        m_window.resize(50, 50);
        m_window.show();
        if (QTest::qWaitForWindowExposed(&m_window))
            QTest::keyPress(m_window.windowHandle(), Qt::Key_Shift, modifiers);
    }
    ~HeldModifiers() { QTest::keyRelease(m_window.windowHandle(), Qt::Key_Shift, {}); }

private:
    QWidget m_window;
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
    for (const auto &[days, age] : ages) {
        EXPECT_EQ(QKAboutPanel::birthdayString(birth.addMSecs(qint64(days * 86400000))),
                  u"Kestrin is %1 old today!"_s.arg(QLatin1String(age)));
    }
    // The same instant in another time zone.
    EXPECT_EQ(QKAboutPanel::birthdayString(
                  QDateTime(QDate(2007, 7, 13), QTime(13, 30), QTimeZone::utc())),
              u"Kestrin is 1 year and 0 months old today!"_s);
}

TEST_F(QKAboutPanelTest, fieldsComeFromTheBundleAndDocumentsOpenWhenPresent)
{
    EXPECT_EQ(child("appNameText")->text(), u"Test Host"_s);
    EXPECT_EQ(child("versionText")->text(), u"3.1 Public Beta 2"_s);
    EXPECT_EQ(child("buildText")->text(), u"3102"_s);
    EXPECT_EQ(child("copyrightText")->text(), u"Copyright © 2003-2031 Velmora"_s);
    EXPECT_EQ(child<QAbstractButton>("legalButton")->text(), u"Legal"_s);
    EXPECT_EQ(child<QAbstractButton>("acknowledgementsButton")->text(), u"Acknowledgements"_s);
    EXPECT_TRUE(child<QAbstractButton>("legalButton")->isEnabled());
    EXPECT_FALSE(child<QAbstractButton>("acknowledgementsButton")->isEnabled());

    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    panel->open();
    QTest::mouseClick(child<QAbstractButton>("legalButton"), Qt::LeftButton);
    panel->openAcknowledgements();
    EXPECT_EQ(m_opened, QList<QUrl>({QUrl::fromLocalFile(path("legal.pdf"))}));
    EXPECT_TRUE(panel->isVisible());
}

TEST_F(QKAboutPanelTest, compiledInDocumentIsHandedToTheViewerAsAFile)
{
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

    EXPECT_TRUE(child<QAbstractButton>("legalButton")->isEnabled());
    QKAboutPanel::aboutPanel()->openLegal();
    ASSERT_EQ(m_opened.size(), 1);
    const QString opened = m_opened.first().toLocalFile();
    EXPECT_TRUE(opened.endsWith(u"/legal.pdf"_s) && !opened.startsWith(u':'))
        << opened.toStdString();
    EXPECT_EQ(QKTestEnvironment::readAll(opened), QKTestEnvironment::readAll(path("legal.pdf")));
}

TEST_F(QKAboutPanelTest, extraLineNeedsControlAltAndShift)
{
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    {
        HeldModifiers held(Qt::ControlModifier | Qt::AltModifier);
        panel->open();
    }
    EXPECT_TRUE(child("additionalText")->text().isEmpty());
    EXPECT_EQ(child("additionalText")->textInteractionFlags(), Qt::NoTextInteraction);
    panel->close();
    {
        HeldModifiers held(Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier);
        panel->open();
    }
    EXPECT_EQ(child("additionalText")->text(), QKAboutPanel::birthdayString(g_now));
    EXPECT_TRUE(child("additionalText")->textInteractionFlags() & Qt::TextSelectableByMouse);
    // Opening while visible changes nothing, not even the extra line.
    panel->open();
    EXPECT_FALSE(child("additionalText")->text().isEmpty());
    panel->close();
    panel->open();
    EXPECT_TRUE(child("additionalText")->text().isEmpty());
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
    // Light grey title on the enabled button, dark grey on the disabled one.
    EXPECT_GE(PanelTestSupport::brightestLevel(shot, child<QWidget>("legalButton")->geometry()),
              150);
    EXPECT_LE(PanelTestSupport::brightestLevel(
                  shot, child<QWidget>("acknowledgementsButton")->geometry()),
              95);
}
