// Sound Lab's Devices menu with the Wii Remote: the scripted fake remote moves the pointer
// and its buttons reach the transport and the level; without Bluetooth the item says why.
#include "../ShortcutTestHost.h"

#include <QKAlert.h>
#include <QKMainMenu.h>
#include <QKWiiRemote.h>

#include "SoundLabWiiRemote.h"
#include "SoundLabWindow.h"

#include <QDeadlineTimer>
#include <QLabel>
#include <QStatusBar>

namespace {

using QKTestEnvironment::waitFor;

QAction *connectItem()
{
    return QKMainMenu::itemForPath({u"Connect Wii Remote"_s});
}

} // namespace

TEST(SoundLabWiiRemote, fakeRemotePointsAndItsButtonsDriveTheTransportAndLevel)
{
    QObject fakeOwner;
    SoundLabWiiRemote::useFakeRemote(&fakeOwner);
    SoundLabWindow window;
    window.show();
    QAction *item = connectItem();
    ASSERT_NE(item, nullptr);
    item->trigger();
    EXPECT_TRUE(waitFor([&] { return item->isChecked(); }));

    const auto *pointer = window.findChild<QWidget *>(u"wiiPointer"_s);
    ASSERT_NE(pointer, nullptr);
    EXPECT_TRUE(waitFor([&] { return pointer->isVisible(); }));
    const QPoint first = pointer->pos();
    EXPECT_TRUE(waitFor([&] { return pointer->pos() != first; }));
    const auto *transport = window.findChild<QLabel *>(u"transport"_s);
    EXPECT_TRUE(waitFor([&] { return transport->text().contains(u"Playing"_s); }));
    EXPECT_TRUE(
        waitFor([&] { return window.statusBar()->currentMessage().contains(u"level 1.25"_s); }));

    item->trigger();
    EXPECT_FALSE(QKWiiRemote::remote()->isConnected());
    EXPECT_FALSE(item->isChecked());
    EXPECT_FALSE(pointer->isVisible());
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
    QKWiiRemote::dispose();
}

TEST(SoundLabWiiRemote, withoutBluetoothTheItemAlertsWithTheReasonAtOnce)
{
    SoundLabWindow window;
    window.show();
    if (QKWiiRemote::remote())
        GTEST_SKIP() << "this machine has a Bluetooth adapter";
    QAction *item = connectItem();
    ASSERT_NE(item, nullptr);
    item->trigger();
    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts.first().message, u"A Wii Remote error occurred"_s);
    EXPECT_EQ(alerts.first().informativeText, u"a Wii Remote could not be detected."_s);
    EXPECT_FALSE(item->isChecked());
}
