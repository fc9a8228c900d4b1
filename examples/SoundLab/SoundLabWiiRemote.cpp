#include "SoundLabWiiRemote.h"

#include "SoundLabSignalGenerator.h"
#include "SoundLabWindow.h"

#include <QKAlert.h>
#include <QKFakeWiiRemote.h>
#include <QKMenus.h>
#include <QKWiiRemoteError.h>

#include <QAction>
#include <QMenu>
#include <QStatusBar>
#include <QTimer>

#include <cmath>
#include <sys/socket.h>

namespace {

const QByteArray ToggleAction = "connectWiiRemote:";
constexpr double LevelStep = 1.25; // about 2 dB
constexpr int PointerSize = 14;

// The remote's side of the fake: it points in a circle and presses a button now and then,
// and takes the output reports so that they never pile up.
class ScriptedWiiRemote : public QObject
{
public:
    ScriptedWiiRemote(std::shared_ptr<QKFakeWiiRemote> fake, QObject *parent)
        : QObject(parent), m_fake(std::move(fake))
    {
        m_timer.setInterval(50);
        connect(&m_timer, &QTimer::timeout, this, &ScriptedWiiRemote::tick);
        m_timer.start();
    }

private:
    void tick()
    {
        const int control = m_fake->remoteEnd(0x11);
        const int interrupt = m_fake->remoteEnd(0x13);
        if (control < 0 || interrupt < 0)
            return;
        char discard[64];
        while (::recv(control, discard, sizeof(discard), MSG_DONTWAIT) > 0) {
        }
        ++m_step;
        // A level bar of two dots whose midpoint moves against the wanted pointer, since
        // the camera sees the scene mirrored.
        const double t = m_step * 0.05;
        const double midX = 0.5 - 0.3 * std::cos(t);
        const double midY = 0.375 - 0.2 * std::sin(t);
        static constexpr quint16 Buttons[] = {QKWiiRemote::ButtonA,    QKWiiRemote::ButtonPlus,
                                              QKWiiRemote::ButtonPlus, QKWiiRemote::ButtonMinus,
                                              QKWiiRemote::ButtonA,    QKWiiRemote::ButtonRight};
        // Each button in turn, down for one report a second.
        const quint16 buttons =
            m_step % 20 == 0 ? Buttons[(m_step / 20 - 1) % std::size(Buttons)] : 0;
        quint8 report[19] = {0xA1, 0x33, quint8(buttons >> 8), quint8(buttons), 0x80, 0x80, 0x9A};
        const double xs[] = {midX - 0.08, midX + 0.08};
        for (int k = 0; k < 4; ++k) {
            quint8 *record = report + 7 + 3 * k;
            if (k >= 2) {
                record[0] = record[1] = record[2] = 0xFF;
                continue;
            }
            const int x = qBound(0, int(xs[k] * 1024), 1023);
            const int y = qBound(0, int(midY * 1024), 767);
            record[0] = quint8(x);
            record[1] = quint8(y);
            record[2] = quint8(((x >> 8) << 4) | ((y >> 8) << 6) | 4);
        }
        ::send(interrupt, report, sizeof(report), MSG_DONTWAIT | MSG_NOSIGNAL);
    }

    std::shared_ptr<QKFakeWiiRemote> m_fake;
    QTimer m_timer;
    int m_step = 0;
};

} // namespace

SoundLabWiiRemote::SoundLabWiiRemote(SoundLabWindow *window, SoundLabSignalGenerator *generator)
    : QObject(window), m_window(window), m_generator(generator), m_pointer(new QWidget(window))
{
    m_pointer->setObjectName(QStringLiteral("wiiPointer"));
    m_pointer->setFixedSize(PointerSize, PointerSize);
    m_pointer->setStyleSheet(QStringLiteral("background: rgba(220, 40, 40, 180); "
                                            "border: 2px solid white; border-radius: 7px;"));
    m_pointer->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_pointer->hide();
}

SoundLabWiiRemote::~SoundLabWiiRemote()
{
    if (m_remote && m_remote->delegate() == this)
        m_remote->setDelegate(nullptr);
}

void SoundLabWiiRemote::addMenuItem(QMenu *devices)
{
    QKMenus::addItemWithTitle(devices, tr("Connect Wii Remote"), ToggleAction)->setCheckable(true);
}

void SoundLabWiiRemote::useFakeRemote(QObject *owner)
{
    auto fake = std::make_shared<QKFakeWiiRemote>();
    if (QKWiiRemote::remoteWithTransport(fake))
        new ScriptedWiiRemote(fake, owner);
}

void SoundLabWiiRemote::toggle()
{
    QKWiiRemote *remote = QKWiiRemote::remote();
    m_remote = remote;
    if (!remote) {
        // No adapter: the same words as a search that finds no remote.
        const QKWiiRemoteError error(1, QKWiiRemoteError::connectingAction());
        QKAlert::runModal(error.alertMessage(), error.failureReason());
    } else if (remote->isConnected()) {
        remote->disconnect();
    } else if (!remote->isConnecting()) {
        remote->setDelegate(this);
        remote->connect();
        report(tr("searching…"));
    }
    updateMenuItem();
}

void SoundLabWiiRemote::updateMenuItem()
{
    const bool connected = m_remote && m_remote->isConnected();
    const QList<QAction *> items = m_window->findChildren<QAction *>();
    for (QAction *item : items) {
        if (item->property(QKMenus::ActionProperty).toByteArray() == ToggleAction)
            item->setChecked(connected);
    }
}

void SoundLabWiiRemote::report(const QString &what)
{
    SoundLabWindow::trace(QStringLiteral("wii %1").arg(what));
    m_window->statusBar()->showMessage(tr("Wii Remote: %1").arg(what), 2000);
}

void SoundLabWiiRemote::wiiRemoteDetected(QKWiiRemote *)
{
    report(tr("found, connecting…"));
}

void SoundLabWiiRemote::wiiRemoteConnected(QKWiiRemote *remote)
{
    remote->setLED1State(true);
    remote->setMotionSensorEnabled(true);
    remote->setInfraredEnabled(true);
    report(tr("connected"));
    updateMenuItem();
}

void SoundLabWiiRemote::wiiRemoteDisconnected(QKWiiRemote *)
{
    m_pointer->hide();
    report(tr("disconnected"));
    updateMenuItem();
}

void SoundLabWiiRemote::wiiRemoteError(QKWiiRemote *, const QKWiiRemoteError &error)
{
    report(error.localizedDescription());
    updateMenuItem();
    QKAlert::runModal(error.alertMessage(), error.failureReason());
}

void SoundLabWiiRemote::wiiRemoteButtonChanged(QKWiiRemote *, quint16 changed, bool state)
{
    if (!state)
        return;
    if (changed & QKWiiRemote::ButtonA) {
        report(QStringLiteral("A"));
        m_window->togglePlayback(this);
    } else if (changed & QKWiiRemote::ButtonHome) {
        report(QStringLiteral("home"));
        m_window->rewind(this);
    } else if (changed & QKWiiRemote::ButtonLeft) {
        m_window->nudgeLeft(this);
    } else if (changed & QKWiiRemote::ButtonRight) {
        m_window->nudgeRight(this);
    } else if (changed & (QKWiiRemote::ButtonPlus | QKWiiRemote::ButtonMinus)) {
        const bool up = changed & QKWiiRemote::ButtonPlus;
        m_generator->setGain(up ? m_generator->gain() * LevelStep
                                : m_generator->gain() / LevelStep);
        report(QStringLiteral("%1, level %2")
                   .arg(up ? QStringLiteral("plus") : QStringLiteral("minus"))
                   .arg(m_generator->gain(), 0, 'f', 2));
    }
}

// The cursor's -1..1 across and -0.75..0.75 down cover the window.
void SoundLabWiiRemote::wiiRemoteMoved(QKWiiRemote *remote)
{
    if (!remote->hasCursorLocation()) {
        m_pointer->hide();
        return;
    }
    const QPointF cursor = remote->cursorLocation();
    if (!std::isfinite(cursor.x()) || !std::isfinite(cursor.y()))
        return;
    const QRect area = m_window->rect();
    const int x = int((cursor.x() + 1.0) / 2.0 * area.width());
    const int y = int((cursor.y() + 0.75) / 1.5 * area.height());
    m_pointer->move(qBound(0, x, area.width() - PointerSize),
                    qBound(0, y, area.height() - PointerSize));
    m_pointer->show();
    m_pointer->raise();
}
