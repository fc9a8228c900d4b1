#include "SoundLabInfraredRemote.h"

#include "SoundLabSignalGenerator.h"
#include "SoundLabWindow.h"

#include <QKAlert.h>
#include <QKMenus.h>
#include <QKRemoteControlDevice.h>

#include <QAction>
#include <QMenu>
#include <QStatusBar>
#include <QTimer>

#include <linux/input.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QByteArray ToggleAction = "enableInfraredRemote:";
constexpr double LevelStep = 1.25; // about 2 dB

// The write end of the fake receiver's pipe, fed one scripted click at a time.
class FakeInfraredReceiver : public QObject
{
public:
    FakeInfraredReceiver(int fd, QObject *parent) : QObject(parent), m_fd(fd)
    {
        m_timer.setInterval(1500);
        connect(&m_timer, &QTimer::timeout, this, &FakeInfraredReceiver::clickNext);
        m_timer.start();
    }
    ~FakeInfraredReceiver() override { ::close(m_fd); }

private:
    void clickNext()
    {
        static constexpr int Script[] = {KEY_PLAYPAUSE, KEY_VOLUMEUP,     KEY_VOLUMEUP,
                                         KEY_MENU,      KEY_VOLUMEDOWN,   KEY_NEXTSONG,
                                         KEY_PLAYPAUSE, KEY_PREVIOUSSONG, KEY_ENTER};
        const int code = Script[m_step++ % std::size(Script)];
        for (const int value : {1, 0}) {
            input_event events[2] = {};
            events[0].type = EV_KEY;
            events[0].code = code;
            events[0].value = value;
            events[1].type = EV_SYN;
            // A full pipe means nobody reads; the click is simply lost.
            if (::write(m_fd, events, sizeof(events)) != sizeof(events))
                m_timer.stop();
        }
    }

    int m_fd;
    int m_step = 0;
    QTimer m_timer;
};

} // namespace

SoundLabInfraredRemote::SoundLabInfraredRemote(SoundLabWindow *window,
                                               SoundLabSignalGenerator *generator)
    : QObject(window), m_window(window), m_generator(generator)
{}

SoundLabInfraredRemote::~SoundLabInfraredRemote()
{
    if (m_remote && m_remote->delegate() == this)
        m_remote->setDelegate(nullptr);
}

void SoundLabInfraredRemote::addMenuItem(QMenu *devices)
{
    QKMenus::addItemWithTitle(devices, tr("Enable Infrared Remote"), ToggleAction)
        ->setCheckable(true);
}

void SoundLabInfraredRemote::useFakeReceiver(QObject *owner)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    QKRemoteControl::remoteControlWithDevice(QKRemoteControlDevice::fromFileDescriptor(fds[0]));
    new FakeInfraredReceiver(fds[1], owner);
}

void SoundLabInfraredRemote::toggle()
{
    QKRemoteControl *remote = QKRemoteControl::remoteControl();
    m_remote = remote;
    if (remote->isRunning()) {
        remote->stop();
    } else {
        remote->setEnabled(true);
        remote->setDelegate(this);
        remote->start();
        if (!remote->isRunning()) {
            QKAlert::runModal(tr("The infrared remote could not be enabled."),
                              remote->errorString());
        }
    }
    const QList<QAction *> items = m_window->findChildren<QAction *>();
    for (QAction *item : items) {
        if (item->property(QKMenus::ActionProperty).toByteArray() == ToggleAction)
            item->setChecked(remote->isRunning());
    }
}

void SoundLabInfraredRemote::report(const QString &button)
{
    SoundLabWindow::trace(QStringLiteral("infrared %1").arg(button));
    m_window->statusBar()->showMessage(tr("Remote: %1").arg(button), 2000);
}

void SoundLabInfraredRemote::menuClicked(QKRemoteControl *)
{
    report(QStringLiteral("menu"));
}

void SoundLabInfraredRemote::playClicked(QKRemoteControl *)
{
    report(QStringLiteral("play"));
    m_window->togglePlayback(this);
}

void SoundLabInfraredRemote::nextClicked(QKRemoteControl *)
{
    report(QStringLiteral("next"));
    m_window->nudgeRight(this);
}

void SoundLabInfraredRemote::previousClicked(QKRemoteControl *)
{
    report(QStringLiteral("previous"));
    m_window->rewind(this);
}

void SoundLabInfraredRemote::volumeUpClicked(QKRemoteControl *)
{
    m_generator->setGain(m_generator->gain() * LevelStep);
    report(QStringLiteral("volume up, level %1").arg(m_generator->gain(), 0, 'f', 2));
}

void SoundLabInfraredRemote::volumeDownClicked(QKRemoteControl *)
{
    m_generator->setGain(m_generator->gain() / LevelStep);
    report(QStringLiteral("volume down, level %1").arg(m_generator->gain(), 0, 'f', 2));
}
