// Sound Lab's track view scrolls and zooms by the wheel mapping of its own resources.
#include "../ShortcutTestHost.h"

#include <QKScrollWheelManager.h>

#include "SoundLabWindow.h"

#include <QScrollBar>
#include <QWheelEvent>

using namespace ShortcutTestHost;

TEST(SoundLabScrollWheel, trackViewZoomsAndScrollsByTheDefaultMapping)
{
    QKBundle resources({QKTestEnvironment::sourcePath(u"../examples/SoundLab/Resources"_s)});
    QKScrollWheelManager *manager = QKScrollWheelManager::defaultManager();
    manager->setBundle(&resources);
    QKScrollWheelManager::loadActions();
    ASSERT_EQ(manager->offeredActions().size(), 4);
    ASSERT_EQ(manager->actions().size(), 5);

    SoundLabWindow window;
    window.show();
    auto *table = window.findChild<QTableView *>(u"trackTable"_s);
    for (int i = 0; i < 40; ++i)
        window.newTrack(nullptr);
    QCoreApplication::processEvents();
    const auto wheel = [&](QPoint angle, Qt::KeyboardModifiers modifiers) {
        QWheelEvent event(QPointF(5, 5), table->viewport()->mapToGlobal(QPointF(5, 5)), QPoint(),
                          angle, Qt::NoButton, modifiers, Qt::NoScrollPhase, false);
        QApplication::sendEvent(table->viewport(), &event);
    };

    const int fontSize = table->font().pointSize();
    wheel({0, 120}, Qt::ControlModifier);
    EXPECT_EQ(table->font().pointSize(), fontSize + 1);

    wheel({0, -240}, Qt::NoModifier);
    EXPECT_EQ(table->verticalScrollBar()->value(), 6);
    wheel({0, 120}, Qt::NoModifier);
    EXPECT_EQ(table->verticalScrollBar()->value(), 3);
    // Nothing is mapped to Meta: the view stays put.
    wheel({0, -120}, Qt::MetaModifier);
    EXPECT_EQ(table->verticalScrollBar()->value(), 3);
    EXPECT_EQ(table->font().pointSize(), fontSize + 1);
}
