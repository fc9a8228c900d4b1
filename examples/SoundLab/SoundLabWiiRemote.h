#pragma once

#include <QKWiiRemote.h>

#include <QObject>
#include <QPointer>

class QMenu;
class QWidget;
class SoundLabSignalGenerator;
class SoundLabWindow;

/**
 * Sound Lab's use of the Wii Remote: the Devices menu item that connects and disconnects
 * it, a pointer that follows where the remote points over the window, and the buttons,
 * which drive the transport (A plays and stops, Home rewinds, left and right nudge) and the
 * generator's level (plus and minus).
 */
class SoundLabWiiRemote : public QObject, public QKWiiRemoteDelegate
{
    Q_OBJECT
public:
    SoundLabWiiRemote(SoundLabWindow *window, SoundLabSignalGenerator *generator);
    ~SoundLabWiiRemote() override;

    /** Adds the checkable "Connect Wii Remote" item to @p devices. */
    static void addMenuItem(QMenu *devices);
    /** Makes the shared remote one that @p owner plays through a scripted fake remote: it
     *  points in a slow circle and presses A, plus and minus in turn. */
    static void useFakeRemote(QObject *owner);

    /** Connects the remote, or disconnects it when connected; an alert tells why it cannot. */
    void toggle();

    void wiiRemoteDetected(QKWiiRemote *remote) override;
    void wiiRemoteConnected(QKWiiRemote *remote) override;
    void wiiRemoteDisconnected(QKWiiRemote *remote) override;
    void wiiRemoteError(QKWiiRemote *remote, const QKWiiRemoteError &error) override;
    void wiiRemoteButtonChanged(QKWiiRemote *remote, quint16 changed, bool state) override;
    void wiiRemoteMoved(QKWiiRemote *remote) override;

private:
    void report(const QString &what);
    void updateMenuItem();

    SoundLabWindow *m_window;
    SoundLabSignalGenerator *m_generator;
    QWidget *m_pointer; // the window's child
    QPointer<QKWiiRemote> m_remote;
};
