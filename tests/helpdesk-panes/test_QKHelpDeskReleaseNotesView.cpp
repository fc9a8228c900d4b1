#include "PanesTestSupport.h"
#include "QKHelpDeskReleaseNotesView.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"

#include <QKApplication.h>
#include <QKWorkspace.h>

#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>
#include <QSignalSpy>
#include <QUrl>

#include <gtest/gtest.h>

using namespace PanesTest;

namespace {

const QString Font = "<font face='Lucida Grande' size=2>";
const QString Waiting = "Please wait for the release notes to load...";

/** Writes a Test Host feed of @p versions (newest first) into the site's data. */
void writeFeed(const QString &data, const QStringList &versions)
{
    QJsonArray items;
    for (const QString &version : versions) {
        items << QJsonObject{{"title", "Test Host " + version},
                             {"version", version},
                             {"shortVersionString", version},
                             {"published", "2024-01-01T00:00:00+00:00"},
                             {"notes", "notes/" + version + ".html"},
                             {"url", "{{BASE}}/downloads/TestHost-" + version + ".tar.gz"},
                             {"length", 1}};
        QKTestEnvironment::writeAll(data + "/titles/tsth/2/notes/" + version + ".html",
                                    "<p>Notes of " + version.toUtf8() + "</p>");
    }
    const QJsonObject feed{{"title", "Test Host Changelog"}, {"items", items}};
    QKTestEnvironment::writeAll(data + "/titles/tsth/2/appcast.json", QJsonDocument(feed).toJson());
}

bool reloadCasts(QKHelpDesk *helpDesk)
{
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    helpDesk->loadCasts();
    return casts.wait(30000);
}

class ReleaseBuild : public QKApplicationDelegate
{
public:
    bool isBetaVersion() const override { return false; }
};

} // namespace

TEST(QKHelpDeskReleaseNotesView, eachChoiceBuildsItsPageAroundTheRunningBuild)
{
    const QString data = sampleDataWith({});
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Export, data);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    QKHelpDesk *helpDesk = HelpDeskTest::startHelpDesk();
    ASSERT_TRUE(HelpDeskTest::openWindowAndWaitForCasts(helpDesk));
    auto *pane = paneOf<QKHelpDeskReleaseNotesView>(helpDesk);
    auto *popup = pane->findChild<QComboBox *>("typePopup");

    // The running build is 2501.
    struct Case
    {
        QStringList feed;
        QString newest, thisVersion, older;
    };
    const Case cases[] = {
        {{"2600", "2501", "2400"},
         Font + "Test Host 2600<hr><p>Notes of 2600</p></font>",
         Font + "Test Host 2501<hr><p>Notes of 2501</p></font>",
         Font + "Test Host 2400<hr><p>Notes of 2400</p><hr></font>"},
        {{"2600", "2400", "2300"},
         Font + "Test Host 2600<hr><p>Notes of 2600</p></font>",
         Font + "Test Host 2600<hr><p>Notes of 2600</p></font>",
         Font + "Test Host 2400<hr><p>Notes of 2400</p><hr>Test Host 2300<hr><p>Notes of "
                "2300</p><hr></font>"},
        {{"2600", "2501"},
         Font + "Test Host 2600<hr><p>Notes of 2600</p></font>",
         Font + "Test Host 2501<hr><p>Notes of 2501</p></font>",
         Font + "</font>"},
    };
    for (const Case &c : cases) {
        writeFeed(data, c.feed);
        ASSERT_TRUE(reloadCasts(helpDesk));
        EXPECT_EQ(pane->pageSource(), popup->currentIndex() == 0 ? c.newest : c.older)
            << "the casts rebuild the page for the choice shown";
        const QString expected[] = {c.newest, c.thisVersion, c.older};
        for (int index = 0; index < 3; ++index) {
            popup->setCurrentIndex(index);
            emit popup->activated(index);
            EXPECT_EQ(pane->pageSource(), expected[index]) << c.feed.join(' ').toStdString();
        }
    }

    // A feed without items leaves the page as it was.
    writeFeed(data, {});
    ASSERT_TRUE(reloadCasts(helpDesk));
    EXPECT_TRUE(helpDesk->appCast().isEmpty());
    pane->changeType();
    EXPECT_EQ(pane->pageSource(), cases[2].older);
}

TEST(QKHelpDeskReleaseNotesView, withoutASiteThePaneWaitsAndTheButtonOpensReleaseOrBetaFeed)
{
    QList<QUrl> opened;
    QKWorkspace::setOpener([&](const QUrl &url) {
        opened << url;
        return true;
    });
    // A base URL below the site root tells the two forms apart.
    QKHelpDesk *helpDesk = openWithoutSite("Release Notes", "http://127.0.0.1:9/site/support");
    ASSERT_NE(helpDesk, nullptr);
    auto *pane = paneOf<QKHelpDeskReleaseNotesView>(helpDesk);
    pane->findChild<QComboBox *>("typePopup")->setCurrentIndex(2);
    pane->changeType();
    EXPECT_EQ(pane->pageSource(), Waiting);

    auto *button = pane->findChild<QPushButton *>("appcastButton");
    button->click(); // Test Host 2.5b1 is a beta build.
    ReleaseBuild release;
    QKApplication::sharedApplication()->setDelegate(&release);
    button->click();
    QKApplication::sharedApplication()->setDelegate(nullptr);
    QKWorkspace::setOpener({});
    EXPECT_EQ(opened,
              QList<QUrl>({QUrl("http://127.0.0.1:9/users/beta/appcasts/tsth/2/index.php"),
                           QUrl("http://127.0.0.1:9/site/support/appcasts/tsth/2/index.xml")}));
}
