#include "PanelTestSupport.h"

#include <QKAboutPanel.h>
#include <QKBundle.h>
#include <QKPropertyList.h>
#include <QKWorkspace.h>

#include <QAbstractButton>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
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
        ASSERT_TRUE(m_folder.isValid());
        const QVariantMap info{
            {QStringLiteral("CFBundleShortVersionString"), QStringLiteral("3.1pb2")},
            {QStringLiteral("CFBundleVersion"), QStringLiteral("3102")},
            {QStringLiteral("NSHumanReadableCopyright"),
             QStringLiteral("Copyright © 2003-2010 Velmora")}};
        ASSERT_TRUE(QKPropertyList::writeFile(info, path("Info.plist")));
        ASSERT_TRUE(PanelTestSupport::writePdf(path("legal.pdf"), QStringLiteral("Legal")));
        m_bundle = std::make_unique<QKBundle>(QStringList{m_folder.path()});
        QKAboutPanel::setBundle(m_bundle.get());
        QKAboutPanel::setClock([] { return g_now; });
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
    static QLabel *text(const char *name)
    {
        return QKAboutPanel::aboutPanel()->view()->findChild<QLabel *>(QString::fromLatin1(name));
    }
    static QAbstractButton *button(const char *name)
    {
        return QKAboutPanel::aboutPanel()->view()->findChild<QAbstractButton *>(
            QString::fromLatin1(name));
    }

    QTemporaryDir m_folder;
    std::unique_ptr<QKBundle> m_bundle;
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

QDateTime afterBirth(double days)
{
    const QDateTime birth(QDate(2006, 7, 22), QTime(19, 30), QTimeZone(6 * 3600));
    return birth.addMSecs(qint64(days * 86400 * 1000));
}

} // namespace

TEST(QKAboutPanelBirthday, countsYearsOf356Days)
{
    EXPECT_EQ(QKAboutPanel::birthdayString(
                  QDateTime(QDate(2007, 7, 13), QTime(19, 30), QTimeZone(6 * 3600))),
              QStringLiteral("Kestrin is 1 year and 0 months old today!"));
    EXPECT_EQ(QKAboutPanel::birthdayString(
                  QDateTime(QDate(2007, 7, 13), QTime(13, 30), QTimeZone::utc())),
              QStringLiteral("Kestrin is 1 year and 0 months old today!"));
    EXPECT_EQ(QKAboutPanel::birthdayString(afterBirth(712)),
              QStringLiteral("Kestrin is 2 years and 0 months old today!"));
    EXPECT_EQ(QKAboutPanel::birthdayString(afterBirth(178)),
              QStringLiteral("Kestrin is 0 years and 6 months old today!"));
    // 11.7 months are printed rounded, beside a year that is not carried.
    EXPECT_EQ(QKAboutPanel::birthdayString(afterBirth(356 * (1 + 11.7 / 12))),
              QStringLiteral("Kestrin is 1 year and 12 months old today!"));
    // Counted in years of 365 days this would be 4 years.
    EXPECT_EQ(QKAboutPanel::birthdayString(afterBirth(356 * 5 + 1)),
              QStringLiteral("Kestrin is 5 years and 0 months old today!"));
}

TEST_F(QKAboutPanelTest, fieldsComeFromTheBundle)
{
    EXPECT_EQ(text("appNameText")->text(), QStringLiteral("Test Host"));
    EXPECT_EQ(text("versionText")->text(), QStringLiteral("3.1 Public Beta 2"));
    EXPECT_EQ(text("buildText")->text(), QStringLiteral("3102"));
    EXPECT_EQ(text("copyrightText")->text(), QStringLiteral("Copyright © 2003-2031 Velmora"));
    EXPECT_EQ(button("legalButton")->text(), QStringLiteral("Legal"));
    EXPECT_EQ(button("acknowledgementsButton")->text(), QStringLiteral("Acknowledgements"));
    EXPECT_TRUE(button("legalButton")->isEnabled());
    EXPECT_FALSE(button("acknowledgementsButton")->isEnabled());
}

TEST_F(QKAboutPanelTest, documentsOpenInTheDefaultViewerWhenPresent)
{
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    panel->open();
    QTest::mouseClick(button("legalButton"), Qt::LeftButton);
    EXPECT_EQ(m_opened, QList<QUrl>({QUrl::fromLocalFile(path("legal.pdf"))}));
    EXPECT_TRUE(panel->isVisible());

    panel->openAcknowledgements();
    EXPECT_EQ(m_opened.size(), 1);
}

TEST_F(QKAboutPanelTest, compiledInDocumentIsHandedToTheViewerAsAFile)
{
    // The host's documents usually live in its compiled resources, which no viewer can read.
    const QString qrc = path("documents.qrc");
    QFile list(qrc);
    ASSERT_TRUE(list.open(QIODevice::WriteOnly));
    list.write("<RCC><qresource prefix=\"/\"><file>Info.plist</file><file>legal.pdf</file>"
               "</qresource></RCC>");
    list.close();
    const QString rcc = QDir(QLibraryInfo::path(QLibraryInfo::LibraryExecutablesPath))
                            .filePath(QStringLiteral("rcc"));
    ASSERT_EQ(QProcess::execute(rcc, {QStringLiteral("--binary"), qrc, QStringLiteral("-o"),
                                      path("documents.rcc")}),
              0);
    ASSERT_TRUE(QResource::registerResource(path("documents.rcc"), QStringLiteral("/documents")));
    QKBundle compiled({QStringLiteral(":/documents")});
    QKAboutPanel::setBundle(&compiled);

    QKAboutPanel::aboutPanel()->openLegal();
    ASSERT_EQ(m_opened.size(), 1);
    const QString opened = m_opened.first().toLocalFile();
    EXPECT_FALSE(opened.startsWith(QLatin1Char(':')));
    EXPECT_TRUE(opened.endsWith(QStringLiteral("/legal.pdf")));
    QFile copy(opened);
    ASSERT_TRUE(copy.open(QIODevice::ReadOnly));
    QFile original(path("legal.pdf"));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    EXPECT_EQ(copy.readAll(), original.readAll());
    EXPECT_TRUE(QKAboutPanel::aboutPanel()
                    ->view()
                    ->findChild<QAbstractButton *>(QStringLiteral("legalButton"))
                    ->isEnabled());
}

TEST_F(QKAboutPanelTest, extraLineNeedsControlAltAndShift)
{
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    {
        HeldModifiers held(Qt::ControlModifier | Qt::AltModifier);
        panel->open();
    }
    EXPECT_TRUE(text("additionalText")->text().isEmpty());
    EXPECT_EQ(text("additionalText")->textInteractionFlags(), Qt::NoTextInteraction);
    panel->close();

    {
        HeldModifiers held(Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier);
        panel->open();
    }
    EXPECT_EQ(text("additionalText")->text(), QKAboutPanel::birthdayString(g_now));
    EXPECT_TRUE(text("additionalText")->textInteractionFlags() & Qt::TextSelectableByMouse);

    // Opening while visible changes nothing, not even the extra line.
    panel->open();
    EXPECT_FALSE(text("additionalText")->text().isEmpty());
    panel->close();
    panel->open();
    EXPECT_TRUE(text("additionalText")->text().isEmpty());
}

TEST_F(QKAboutPanelTest, clickOnTheBackgroundClosesThePanel)
{
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    panel->open();
    QWidget *window = panel->window();
    QTest::mouseClick(text("copyrightText"), Qt::LeftButton);
    EXPECT_FALSE(window->isVisible());

    panel->open();
    EXPECT_EQ(panel->window(), window);
    QTest::mouseClick(panel->view(), Qt::LeftButton, {}, QPoint(8, 8));
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(QKAboutPanelTest, fadesInAndOutKeepingTheWindow)
{
    QKAboutPanel::setFadeDuration(60);
    QKAboutPanel *panel = QKAboutPanel::aboutPanel();
    QWidget *window = panel->window();
    panel->open();
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->windowOpacity(), 0.0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->windowOpacity() == 1.0; }));
    EXPECT_TRUE(window->isVisible());

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
    const QImage shot = panel->window()->grab().toImage().convertToFormat(QImage::Format_ARGB32);
    PanelTestSupport::saveArtifact(shot, QStringLiteral("about-panel"));

    const QSize size = shot.size();
    ASSERT_EQ(size, QSize(340, 260));
    for (const QPoint corner : {QPoint(0, 0), QPoint(339, 0), QPoint(0, 259), QPoint(339, 259)})
        EXPECT_EQ(qAlpha(shot.pixel(corner)), 0) << corner.x() << "," << corner.y();
    EXPECT_NEAR(qRed(shot.pixel(10, 130)), 38, 6);
    EXPECT_EQ(qAlpha(shot.pixel(10, 130)), 255);

    // The separator: dark grey on one pixel row, 49.5 above the bottom, 20 in from each side.
    const int row = size.height() - 50;
    EXPECT_NEAR(qRed(shot.pixel(size.width() / 2, row)), 85, 4);
    EXPECT_LT(qRed(shot.pixel(size.width() / 2, row - 2)), 20);
    EXPECT_LT(qRed(shot.pixel(10, row)), 20);

    // Light grey title on the enabled button, dark grey on the disabled one.
    EXPECT_GE(PanelTestSupport::brightestLevel(shot, button("legalButton")->geometry()), 150);
    EXPECT_LE(PanelTestSupport::brightestLevel(shot, button("acknowledgementsButton")->geometry()),
              95);
}
