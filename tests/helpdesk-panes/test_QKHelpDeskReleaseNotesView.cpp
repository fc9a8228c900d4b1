#include "PanesTestSupport.h"
#include "QKHelpDeskReleaseNotesView.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"

#include <QKApplication.h>

#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>

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

} // namespace

TEST(QKHelpDeskReleaseNotesView, eachChoiceBuildsItsPageAroundTheRunningBuild)
{
    const QString data = sampleDataWith({});
    QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Export, data);
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
    auto *pane = paneOf<QKHelpDeskReleaseNotesView>(helpDesk);
    auto *popup = pane->findChild<QComboBox *>("typePopup");

    // The running build is 2501.
    const auto notes = [](const QString &version) {
        return "Test Host " + version + "<hr><p>Notes of " + version + "</p>";
    };
    const struct
    {
        QStringList feed;
        QString newest, thisVersion, older;
    } cases[] = {
        {{"2600", "2501", "2400"}, notes("2600"), notes("2501"), notes("2400") + "<hr>"},
        {{"2600", "2400", "2300"},
         notes("2600"),
         notes("2600"),
         notes("2400") + "<hr>" + notes("2300") + "<hr>"},
        {{"2600", "2501"}, notes("2600"), notes("2501"), ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.feed.join(' ').toStdString());
        writeFeed(data, c.feed);
        ASSERT_TRUE(reloadCasts(helpDesk));
        EXPECT_EQ(pane->pageSource(),
                  Font + (popup->currentIndex() == 0 ? c.newest : c.older) + "</font>")
            << "the casts rebuild the page for the choice shown";
        const QString expected[] = {c.newest, c.thisVersion, c.older};
        for (int index = 0; index < 3; ++index) {
            popup->setCurrentIndex(index);
            emit popup->activated(index);
            EXPECT_EQ(pane->pageSource(), Font + expected[index] + "</font>");
        }
    }

    // A feed without items leaves the page as it was.
    writeFeed(data, {});
    ASSERT_TRUE(reloadCasts(helpDesk));
    EXPECT_TRUE(helpDesk->appCast().isEmpty());
    pane->changeType();
    EXPECT_EQ(pane->pageSource(), Font + "</font>");
}

TEST(QKHelpDeskReleaseNotesView, withoutASiteThePaneWaitsAndTheButtonOpensReleaseOrBetaFeed)
{
    OpenedURLs opened;
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
    EXPECT_EQ(opened, QStringList({"http://127.0.0.1:9/users/beta/appcasts/tsth/2/index.php",
                                   "http://127.0.0.1:9/site/support/appcasts/tsth/2/index.xml"}));
}
