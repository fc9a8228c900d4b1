// Sound Lab's Devices menu with the infrared remote: the fake receiver's scripted presses
// reach the transport and the level; without a receiver the item says why it failed.
#include "../ShortcutTestHost.h"

#include <QKAlert.h>
#include <QKMainMenu.h>
#include <QKRemoteControl.h>

#include "SoundLabInfraredRemote.h"
#include "SoundLabWindow.h"

#include <QDeadlineTimer>
#include <QLabel>
#include <QStatusBar>

#include <cstdlib>

namespace {

using QKTestEnvironment::waitFor;

QAction *enableItem()
{
    return QKMainMenu::itemForPath({u"Enable Infrared Remote"_s});
}

} // namespace

TEST(SoundLabInfrared, fakeReceiverPressesDriveTheTransportAndLevel)
{
    QObject fakeOwner;
    SoundLabInfraredRemote::useFakeReceiver(&fakeOwner);
    SoundLabWindow window;
    window.show();
    QAction *item = enableItem();
    ASSERT_NE(item, nullptr);
    item->trigger();
    EXPECT_TRUE(QKRemoteControl::remoteControl()->isRunning());
    EXPECT_TRUE(item->isChecked());

    const auto *transport = window.findChild<QLabel *>(u"transport"_s);
    ASSERT_NE(transport, nullptr);
    EXPECT_TRUE(waitFor([&] { return transport->text().contains(u"Playing"_s); }));
    EXPECT_TRUE(
        waitFor([&] { return window.statusBar()->currentMessage().contains(u"level 1.25"_s); }));

    item->trigger();
    EXPECT_FALSE(QKRemoteControl::remoteControl()->isRunning());
    EXPECT_FALSE(item->isChecked());
    QKRemoteControl::dispose();
}

TEST(SoundLabInfrared, withoutAReceiverTheItemAlertsWithTheReason)
{
    setenv("QK_INFRARED_DEVICE", "/nonexistent/event0", 1);
    SoundLabWindow window;
    window.show();
    QAction *item = enableItem();
    ASSERT_NE(item, nullptr);
    item->trigger();
    unsetenv("QK_INFRARED_DEVICE");

    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts.first().informativeText, u"Creating the plugin for the remote failed"_s);
    EXPECT_FALSE(item->isChecked());
    QKRemoteControl::dispose();
}
