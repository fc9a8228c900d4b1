#include "SupportTestSupport.h"

#include "QKHelpDeskAttachFilesPanel.h"
#include "QKHelpDeskAttachedFiles.h"

#include <QApplication>
#include <QDragMoveEvent>
#include <QMimeData>
#include <QTableView>

using namespace SupportTest;

namespace {

// Drags @p paths over the table and drops them, as a file manager would; answers whether
// the table offered to take them.
bool dropFiles(QTableView *table, const QStringList &paths)
{
    QMimeData mime;
    QList<QUrl> urls;
    for (const QString &path : paths)
        urls << QUrl::fromLocalFile(path);
    mime.setUrls(urls);
    const QPointF position = table->viewport()->rect().center();
    QDragEnterEvent enter(position.toPoint(), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(table->viewport(), &enter);
    QDragMoveEvent move(position.toPoint(), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(table->viewport(), &move);
    QDropEvent drop(position, Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(table->viewport(), &drop);
    return move.isAccepted();
}

using AttachmentsSheet = SupportPaneTest;

} // namespace

TEST(QKHelpDeskAttachFilesPanel, dropsAreRefusedWithAFolderOrAnAttachedName)
{
    QKHelpDeskAttachFilesPanel panel;
    panel.resize(420, 280);
    panel.openAttachFilesPanel();
    auto *table = panel.findChild<QTableView *>("attachedFilesTable");
    const QString notes = writeFile("a/notes.txt", "1");
    const QString other = writeFile("a/other.txt", "2");
    const QString readmeA = writeFile("b/readme", "3");
    const QString readmeB = writeFile("c/readme", "4");

    EXPECT_TRUE(dropFiles(table, {notes, other}));
    EXPECT_FALSE(dropFiles(table, {writeFile("d/notes.txt", "same name")}));
    EXPECT_FALSE(dropFiles(table, {readmeA, QKTestEnvironment::homeFile("c")}));
    // Names repeated within one drop are not compared with each other.
    EXPECT_TRUE(dropFiles(table, {readmeA, readmeB}));
    EXPECT_EQ(panel.attachedFiles()->paths(), QStringList({notes, other, readmeA, readmeB}));
    EXPECT_EQ(table->model()->index(3, 0).data().toString(), "readme");
}

TEST_F(AttachmentsSheet, addRemoveAndCloseShowWhetherFilesAreAttached)
{
    const QString notes = writeFile("notes.txt", "n");
    QList<QKFilePanelRequest> asked;
    QStringList answer{notes};
    QKFilePanels::setAnswerer([&](const QKFilePanelRequest &request, bool save) {
        EXPECT_FALSE(save);
        asked << request;
        return answer;
    });
    QKHelpDeskAttachFilesPanel *sheet = pane->attachFilesPanel();
    auto *table = sheet->findChild<QTableView *>("attachedFilesTable");
    auto *remove = sheet->findChild<QPushButton *>("removeAttachedFilesButton");
    auto *add = sheet->findChild<QPushButton *>("addAttachedFileButton");
    auto *done = sheet->findChild<QPushButton *>("closeAttachFilesButton");
    // Both images, new request side and reply side, as "11", "00"...
    const auto images = [this] {
        return QStringLiteral("%1%2")
            .arg(int(!paneWidget<QLabel>(pane, "attachments1Image")->isHidden()))
            .arg(int(!paneWidget<QLabel>(pane, "attachments2Image")->isHidden()));
    };

    paneWidget<QPushButton>(pane, "attachFiles1Button")->click();
    ASSERT_TRUE(sheet->isVisible());
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    add->click();
    add->click();
    answer.clear(); // the user cancels the open panel
    add->click();
    ASSERT_EQ(asked.size(), 3);
    EXPECT_TRUE(asked[0].allowsMultipleSelection);
    EXPECT_TRUE(asked[0].fileTypes.isEmpty());
    EXPECT_EQ(pane->attachedFiles(), QStringList({notes, notes}));

    EXPECT_FALSE(remove->isEnabled());
    table->selectRow(0);
    EXPECT_TRUE(remove->isEnabled());
    remove->click();
    EXPECT_EQ(pane->attachedFiles(), QStringList(notes));
    EXPECT_FALSE(remove->isEnabled());
    done->click();
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(images(), "11");

    pane->openAttachFilesPanel();
    table->selectRow(0);
    remove->click();
    done->click();
    EXPECT_EQ(images(), "00");
}
