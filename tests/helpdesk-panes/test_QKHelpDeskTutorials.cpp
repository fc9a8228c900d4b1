#include "PanesTestSupport.h"
#include "QKClock.h"
#include "QKHelpDeskDates.h"
#include "QKHelpDeskTutorials.h"
#include "QKHelpDeskTutorialsModel.h"
#include "QKSupportSiteProcess.h"

#include <QKUserDefaults.h>

#include <QPushButton>
#include <QTreeView>

#include <gtest/gtest.h>

using namespace PanesTest;

namespace {

const QString NewTutorials = "New tutorials are available";
const QString LastCheck = "Last Tutorial Check";
// The clock of these tests: 2024-07-04 16:30:00 in New York.
const QDateTime Now = utc({2024, 7, 4}, {20, 30});
const QString NowText = "2024-07-04 16:30:00 -0400";

QVariantMap tutorial(const QString &published, const QVariantList &items = {})
{
    QVariantMap entry{{"title", "T"}};
    if (!published.isEmpty())
        entry.insert("published", published);
    if (!items.isEmpty())
        entry.insert("items", items);
    return entry;
}

class QKHelpDeskTutorialsTest : public ::testing::Test
{
protected:
    // Each test runs in a process of its own: the clock needs no reset.
    void SetUp() override
    {
        QKClock::setClock([] { return Now; });
    }
    void open()
    {
        helpDesk = startHelpDesk();
        ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
        pane = paneOf<QKHelpDeskTutorials>(helpDesk);
        tree = pane->findChild<QTreeView *>("table");
    }
    QModelIndex row(const QList<int> &path) const
    {
        QModelIndex index;
        for (int r : path)
            index = tree->model()->index(r, 0, index);
        return index;
    }

    QKHelpDesk *helpDesk = nullptr;
    QKHelpDeskTutorials *pane = nullptr;
    QTreeView *tree = nullptr;
    OpenedURLs opened;
};

} // namespace

TEST(QKHelpDeskTutorials, containsUpdatesSearchesEveryDepthForAStrictlyLaterDate)
{
    const QDateTime since = utc({2024, 1, 1}, {0, 0}); // 2023-12-31 19:00:00 -0500
    const QString before = "2023-12-31 18:59:59 -0500";
    const QString equal = "2024-01-01 00:00:00 +0000";
    const QString after = "2023-12-31 19:00:01 -0500";
    const struct
    {
        QVariantList entries;
        bool updates;
    } cases[] = {
        {{}, false},
        {{tutorial(equal)}, false},
        {{tutorial(after)}, true},
        {{tutorial(before), tutorial(before), tutorial(after)}, true},
        {{tutorial(before, {tutorial(before), tutorial(after)})}, true},
        {{tutorial("", {tutorial("", {tutorial(after)})})}, true},
        {{tutorial(after.left(10))}, false},
        {{tutorial("", {tutorial(before)}), QVariantMap{{"downloadURL", "x"}}}, false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(QKHelpDeskTutorials::containsUpdates(c.entries, since), c.updates);
    EXPECT_TRUE(logText().contains(
        "the tutorial \"T\" has a publication date \"2023-12-31\" that is not a date"));
}

TEST_F(QKHelpDeskTutorialsTest, alertOncePerNewTutorialShowTheTreeExpandedAndOpenItsAddresses)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    notifyAboutUpdates(false, true);
    answerAlerts({{NewTutorials, 1}});
    open();
    // Never checked before: every dated tutorial is new.
    EXPECT_EQ(alertMessages(), QStringList{NewTutorials});
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    EXPECT_EQ(defaults->stringForKey(LastCheck), NowText);

    const QAbstractItemModel *model = tree->model();
    ASSERT_EQ(model->rowCount(), 3);
    EXPECT_EQ(model->data(row({0})).toString(), "Basics");
    EXPECT_EQ(model->data(row({0, 1})).toString(), "Assigning Shortcuts");
    EXPECT_EQ(model->data(row({2})).toString(), "Webinar Recording");
    EXPECT_TRUE(model->hasChildren(row({0})));
    EXPECT_FALSE(model->hasChildren(row({1})));
    EXPECT_TRUE(tree->isExpanded(row({0})));

    // "Assigning Shortcuts" of the group "Basics" came out 2024-02-12 10:45:00 in New York.
    enum Answer { HelpDesk = 0, Later = 1 };
    const struct
    {
        bool notify;
        QString lastCheck;
        Answer answer;
        bool alert;
    } cases[] = {
        {true, NowText, Later, false},
        {true, "2024-02-12 10:45:00 -0500", Later, false},
        {true, "2024-02-12 10:44:59 -0500", Later, true},
        {false, "2024-02-12 10:44:59 -0500", HelpDesk, false},
        {true, "2024-02-12 15:44:59 +0000", HelpDesk, true},
    };
    for (const auto &c : cases) {
        notifyAboutUpdates(false, c.notify);
        defaults->setObject(c.lastCheck, LastCheck);
        helpDesk->setPane("support");
        answerAlerts({{NewTutorials, c.answer}});
        pane->castsDidLoad();
        EXPECT_EQ(alertMessages(), c.alert ? QStringList{NewTutorials} : QStringList())
            << c.lastCheck.toStdString();
        EXPECT_EQ(helpDesk->currentView()->identifier(),
                  c.alert && c.answer == HelpDesk ? "tutorials" : "support");
        EXPECT_EQ(defaults->stringForKey(LastCheck), NowText) << "every load is a check";
    }

    // Both buttons follow the download address.
    const QString base = site.baseURL();
    auto *download = pane->findChild<QPushButton *>("downloadButton");
    auto *stream = pane->findChild<QPushButton *>("streamButton");
    EXPECT_FALSE(download->isEnabled());
    EXPECT_TRUE(pane->selectedItemDownloadURL().isNull());

    const struct
    {
        QList<int> path;
        bool enabled;
        QString downloadURL, streamURL;
        QStringList opened; // by clicking download, then stream
    } selections[] = {
        {{0}, false, {}, {}, {}},
        {{0, 0},
         true,
         base + "/downloads/blob-1048576.bin",
         base + "/tutorials/tsth/2/opening-a-plug-in.html",
         {base + "/downloads/blob-1048576.bin", base + "/tutorials/tsth/2/opening-a-plug-in.html"}},
        {{0, 1},
         true,
         base + "/downloads/blob-2097152.bin",
         {},
         {base + "/downloads/blob-2097152.bin"}},
        {{2}, false, {}, base + "/tutorials/tsth/2/webinar.html", {}},
    };
    for (const auto &c : selections) {
        tree->setCurrentIndex(row(c.path));
        opened.clear();
        EXPECT_EQ(download->isEnabled(), c.enabled);
        EXPECT_EQ(stream->isEnabled(), c.enabled);
        EXPECT_EQ(pane->selectedItemDownloadURL(), c.downloadURL);
        EXPECT_EQ(pane->selectedItemStreamURL(), c.streamURL);
        download->click();
        stream->click();
        EXPECT_EQ(opened, c.opened);
    }
}

TEST_F(QKHelpDeskTutorialsTest, withoutAnIndexTheOutlineIsEmptyButTheCheckIsRecorded)
{
    notifyAboutUpdates(true, true);
    answerAlerts({});
    useSite("http://127.0.0.1:9");
    open();
    EXPECT_EQ(tree->model()->rowCount(), 0);
    EXPECT_TRUE(alertMessages().isEmpty());
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->stringForKey(LastCheck), NowText);
}
