#include "SupportTestSupport.h"

#include "QKHelpDeskRequestHistory.h"

#include <QKMultipartRequest.h>
#include <QKSynchronousRequest.h>

#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocument>

#include <ctime>

using namespace SupportTest;

namespace {

const QString Alex = QStringLiteral("alex.martin@example.com");

class FollowUp : public SupportPaneTest
{
protected:
    void SetUp() override
    {
        qputenv("TZ", "UTC");
        tzset();
        SupportPaneTest::SetUp();
    }

    /** Searches for @p email's requests and returns the panel's title while it searched. */
    QString search(const QString &email)
    {
        paneWidget<QLineEdit>(pane, "emailSearchText")->setText(email);
        paneWidget<QPushButton>(pane, "searchButton")->click();
        const QString title = progressPanel()->progressPanelTitle();
        waitUntil([] { return !progressPanel()->isVisible(); });
        return title;
    }
    QStringList popupItems() const
    {
        QStringList items;
        const auto *popup = paneWidget<QComboBox>(pane, "requestPopup");
        for (int i = 0; i < popup->count(); ++i)
            items << popup->itemText(i);
        return items;
    }
    QTextDocument *history() const
    {
        return paneWidget<QTextBrowser>(pane, "requestHistoryText")->document();
    }
};

} // namespace

TEST_F(FollowUp, searchListsOpenRequestsAndClosedOnesOnRequest)
{
    EXPECT_EQ(search(Alex), "Finding requests...");
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->stringForKey("Help Desk Email"), Alex);
    auto *popup = paneWidget<QComboBox>(pane, "requestPopup");
    EXPECT_EQ(popupItems(), QStringList("10002"));
    EXPECT_TRUE(popup->isEnabled());
    EXPECT_TRUE(paneWidget<QPushButton>(pane, "updateRequestButton")->isEnabled());
    EXPECT_TRUE(paneWidget<QPushButton>(pane, "attachFilesButton")->isEnabled());

    check("showClosedButton");
    EXPECT_EQ(popupItems(), QStringList({"10001", "10002", "10004"}));
    EXPECT_EQ(popup->currentText(), "10002");
    for (int i : {0, 2})
        EXPECT_TRUE(popup->itemData(i, Qt::FontRole).value<QFont>().italic()) << i;
    EXPECT_FALSE(popup->itemData(1, Qt::FontRole).isValid());

    search("nobody@example.org");
    EXPECT_EQ(popupItems(), QStringList("no requests found"));
    EXPECT_FALSE(popup->isEnabled());
    EXPECT_FALSE(paneWidget<QPushButton>(pane, "updateRequestButton")->isEnabled());
    EXPECT_TRUE(history()->isEmpty());
}

TEST_F(FollowUp, historyShowsPublicNotesNewestFirstInTheirStyles)
{
    search(Alex);
    EXPECT_EQ(history()->toPlainText(),
              "Thu May 30, 2024 07:55 AM\nGood to know. Until then, exporting in two halves "
              "works.\n\nWed May 29, 2024 10:05 AM\nThanks for the crash log. We can reproduce "
              "this with sessions longer than 30 minutes; a fix is planned for 3.1b2.\n\n"
              "Tue May 28, 2024 05:20 PM\nI had a crash! Here's what happened...\n\nExporting a "
              "40-minute session to FLAC quits Sound Lab at about 80%.\n\n");
    // Dates bold, staff dates orange, staff notes italic.
    const struct
    {
        const char *text;
        bool bold, italic;
        QBrush foreground;
    } styles[] = {
        {"Thu May 30, 2024 07:55 AM", true, false, {}},
        {"Good to know.", false, false, {}},
        {"Wed May 29, 2024 10:05 AM", true, false, QColor(255, 128, 0)},
        {"Thanks for the crash log.", false, true, {}},
    };
    for (const auto &style : styles) {
        const QTextCharFormat format = history()->find(style.text).charFormat();
        EXPECT_EQ(format.fontFamilies().toStringList(), QStringList("Helvetica")) << style.text;
        EXPECT_EQ(format.fontPointSize(), 12.0) << style.text;
        EXPECT_EQ(format.fontWeight(), style.bold ? QFont::Bold : QFont::Normal) << style.text;
        EXPECT_EQ(format.fontItalic(), style.italic) << style.text;
        EXPECT_EQ(format.foreground(), style.foreground) << style.text;
    }

    qputenv("TZ", "Asia/Tokyo");
    tzset();
    EXPECT_EQ(QKHelpDeskRequestHistory::formattedDate(0), "Thu Jan 01, 1970 09:00 AM");
}

TEST_F(FollowUp, aReplyIsFollowedByAttachmentsAndRefreshesTheList)
{
    // The reply sends the debug log only together with the crash logs.
    check("submitDebugLogButton");
    writeFile(".local/state/CrashReporter/Test Host_2024-05-01-101500.crash", "crash");
    search(Alex);
    QKSynchronousRequest::post(QKMultipartRequest::requestWithURL(
        QUrl(site->baseURL() + "/inspect/reply"),
        {{"xRequest", "10002"}, {"xPerson", "5"}, {"tNote", "Try 3.1b2."}}));
    attach({writeFile("notes.txt", "my notes")});
    paneWidget<QPlainTextEdit>(pane, "requestResponseText")->setPlainText("Thanks, it works.");
    paneWidget<QPushButton>(pane, "updateRequestButton")->click();
    EXPECT_EQ(progressPanel()->progressPanelTitle(), "Responding to request...");
    ASSERT_EQ(waitForPanelEnd(), "Updating requests...");

    QJsonObject request;
    for (const QJsonValue &value : inspect(*site, "requests")) {
        if (value["xRequest"].toInteger() == 10002)
            request = value.toObject();
    }
    const QJsonObject reply = request["history"].toArray().last().toObject();
    EXPECT_EQ(reply["tNote"].toString(), "Thanks, it works.");
    EXPECT_EQ(reply["xPerson"].toInteger(), 0);
    const QJsonArray documents = inspect(*site, "documents");
    ASSERT_EQ(documents.size(), 1);
    EXPECT_EQ(documents[0]["name"].toString(), "10002");
    EXPECT_EQ(documents[0]["xRequestHistory"].toInteger(), reply["xRequestHistory"].toInteger());

    // The refreshed list keeps the request, and its history shows the new events on top.
    EXPECT_EQ(paneWidget<QComboBox>(pane, "requestPopup")->currentText(), "10002");
    EXPECT_EQ(history()->toPlainText().section('\n', 1, 1), "Thanks, it works.");
    EXPECT_EQ(history()->toPlainText().section('\n', 4, 4), "Try 3.1b2.");
    EXPECT_TRUE(paneWidget<QPlainTextEdit>(pane, "requestResponseText")->toPlainText().isEmpty());
    EXPECT_TRUE(pane->attachedFiles().isEmpty());
    EXPECT_EQ(supportLog(),
              QStringList({"Info: preparing attachments", "Info: sending attachments",
                           "Info: submit attached files success", "Info: submit complete"}));
}

TEST_F(FollowUp, aSiteThatIsGoneKeepsTheReplyAndFindsNothing)
{
    search(Alex);
    site->stop();
    paneWidget<QPlainTextEdit>(pane, "requestResponseText")->setPlainText("Hello?");
    paneWidget<QPushButton>(pane, "updateRequestButton")->click();
    EXPECT_EQ(waitForPanelEnd(), "Sending response failed!");
    EXPECT_EQ(paneWidget<QPlainTextEdit>(pane, "requestResponseText")->toPlainText(), "Hello?");
    EXPECT_TRUE(supportLog().isEmpty());

    waitUntil([] { return !progressPanel()->isVisible(); });
    search(Alex);
    EXPECT_EQ(popupItems(), QStringList("no requests found"));
    EXPECT_FALSE(pane->requests().has_value());
}
