#pragma once

#include <QKRemoteControl.h>

#include <QObject>
#include <QPointer>

class QMenu;
class SoundLabSignalGenerator;
class SoundLabWindow;

/**
 * Sound Lab's use of the infrared remote: the Devices menu item that switches it on and off,
 * and the presses, which drive the transport (play, next, previous) and the generator's
 * level (volume up and down).
 */
class SoundLabInfraredRemote : public QObject, public QKRemoteControlDelegate
{
    Q_OBJECT
public:
    SoundLabInfraredRemote(SoundLabWindow *window, SoundLabSignalGenerator *generator);
    ~SoundLabInfraredRemote() override;

    /** Adds the checkable "Enable Infrared Remote" item to @p devices. */
    static void addMenuItem(QMenu *devices);
    /** Makes the shared receiver one that @p owner feeds with scripted presses through a
     *  pipe, for trying Sound Lab without a receiver. */
    static void useFakeReceiver(QObject *owner);

    /** Starts the receiver, or stops it when it runs; an alert tells why it cannot start. */
    void toggle();

    void menuClicked(QKRemoteControl *remote) override;
    void playClicked(QKRemoteControl *remote) override;
    void nextClicked(QKRemoteControl *remote) override;
    void previousClicked(QKRemoteControl *remote) override;
    void volumeUpClicked(QKRemoteControl *remote) override;
    void volumeDownClicked(QKRemoteControl *remote) override;

private:
    void report(const QString &button);

    SoundLabWindow *m_window;
    SoundLabSignalGenerator *m_generator;
    QPointer<QKRemoteControl> m_remote;
};
