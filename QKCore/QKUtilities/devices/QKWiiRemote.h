#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QPointF>

#include <memory>

class QKWiiDot;
class QKWiiRemote;
class QKWiiRemoteError;
class QKWiiRemoteTransport;

/**
 * Hears from the Wii Remote, always on the GUI thread. The default bodies do nothing, so a
 * delegate implements only what it cares about.
 */
class QKUTILITIES_EXPORT QKWiiRemoteDelegate
{
public:
    virtual ~QKWiiRemoteDelegate();

    /** The search found a remote; connecting to it begins. */
    virtual void wiiRemoteDetected(QKWiiRemote *remote);
    /** Both channels are open and the remote has its LEDs and reporting mode. */
    virtual void wiiRemoteConnected(QKWiiRemote *remote);
    /** The link is gone, after disconnect() or because the remote went away. */
    virtual void wiiRemoteDisconnected(QKWiiRemote *remote);
    /** Connecting failed (codes 1 to 6), or an output report could not be sent (code 7). */
    virtual void wiiRemoteError(QKWiiRemote *remote, const QKWiiRemoteError &error);
    /** Once per input report whose buttons differ from the last: @p changed holds the bits
     *  that changed, @p state is true when any of them is now down. */
    virtual void wiiRemoteButtonChanged(QKWiiRemote *remote, quint16 changed, bool state);
    /** Once per report that carried forces or infrared dots, after any button change. */
    virtual void wiiRemoteMoved(QKWiiRemote *remote);
};

/**
 * One Nintendo Wii Remote as a control surface, reached through remote().
 *
 * connect() searches for a device named exactly "Nintendo RVL-CNT-01" and connects to the
 * first one found. The search and the connection block for seconds (the remote needs its
 * pauses), so they run on a thread of their own; every callback still arrives on the GUI
 * thread, in the order the steps happen. Input reports are read on the GUI thread.
 *
 * The LED, rumble, motion and infrared settings are sent at once while connected and again
 * at the next connection (infrared needs setInfraredEnabled() again for its camera set-up).
 */
class QKUTILITIES_EXPORT QKWiiRemote : public QObject
{
    Q_OBJECT

public:
    /** The bits of buttonState() and of wiiRemoteButtonChanged(). */
    enum Button : quint16 {
        ButtonTwo = 0x0001,
        ButtonOne = 0x0002,
        ButtonB = 0x0004,
        ButtonA = 0x0008,
        ButtonMinus = 0x0010,
        ButtonHome = 0x0080,
        ButtonLeft = 0x0100,
        ButtonRight = 0x0200,
        ButtonDown = 0x0400,
        ButtonUp = 0x0800,
        ButtonPlus = 0x1000
    };
    /** What orientation() answers when the remote is held too still to tell. */
    static constexpr unsigned NoOrientation = 4;

    /** The shared remote over BlueZ, created on first use; null (and logged) when no powered
     *  Bluetooth adapter is present. Answers at once either way. */
    static QKWiiRemote *remote();
    /** The shared remote, created over @p transport when there is none yet and the transport
     *  has usable hardware; an existing remote is returned and @p transport dropped. */
    static QKWiiRemote *remoteWithTransport(std::shared_ptr<QKWiiRemoteTransport> transport);
    /** Destroys the shared remote, disconnecting it first. */
    static void dispose();

    ~QKWiiRemote() override;

    /** Searches and connects; does nothing while connected or while a search runs. */
    void connect();
    /** Closes both channels and the link, each tried up to 11 times, and tells the delegate.
     *  Does nothing while not connected. */
    void disconnect();
    /** True from the connection's set-up until the link goes. */
    bool isConnected() const;
    /** True while a search or connection runs. */
    bool isConnecting() const;

    QKWiiRemoteDelegate *delegate() const;
    /** @p delegate is not owned; it must outlive the remote or be unset first. */
    void setDelegate(QKWiiRemoteDelegate *delegate);

    bool vibrate() const;
    void setVibrate(bool vibrate);
    bool LED1State() const;
    bool LED2State() const;
    bool LED3State() const;
    bool LED4State() const;
    void setLED1State(bool on);
    void setLED2State(bool on);
    void setLED3State(bool on);
    void setLED4State(bool on);
    bool motionSensorEnabled() const;
    void setMotionSensorEnabled(bool enabled);
    bool infraredEnabled() const;
    /** Switches the camera and, when on, writes its sensitivity and dot format. */
    void setInfraredEnabled(bool enabled);
    /** The weight of the old force in each new one, 0 (no smoothing) to 1; initially 0.9. */
    float forceSmoothing() const;
    void setForceSmoothing(float smooth);

    /** Sends @p report (report ID and data) on the control channel, behind the 0x52 header
     *  and cut to 39 bytes. Does nothing while not connected; a failed write is reported as
     *  error 7. For reports the setters do not cover. */
    void _sendCommand(const quint8 *report, qsizetype length);
    /** Writes up to 16 bytes of @p data into the remote's memory or registers at
     *  @p address. */
    void _writeData(const quint8 *data, qsizetype length, quint32 address);

    /** Decodes one packet from either channel: byte 0 is the transaction header, byte 1 the
     *  report ID. Reports other than 0x3X are ignored; one too short for its ID is logged
     *  and ignored. */
    void l2capChannelData(const quint8 *data, qsizetype length);

    quint16 buttonState() const;
    /** The smoothed accelerations, about -1..1 per axis (1 is one g). */
    float forceX() const;
    float forceY() const;
    float forceZ() const;
    /** 0 to 3 by the axis gravity pulls along (0 face up, 2 face down, 3 and 1 on the sides),
     *  NoOrientation when neither force exceeds 0.02. */
    unsigned orientation() const;
    /** Always 0; kept for hosts that ask. */
    float roll() const;
    float pitch() const;
    float yaw() const;
    /** The dot in camera slot @p index, null for an index outside 0..3. */
    const QKWiiDot *dotAtIndex(int index) const;
    /** True when dots 0 and 1 are both valid. */
    bool hasCursorLocation() const;
    /** Where the remote points, about -1..1 across and -0.75..0.75 down, from dots 0 and 1
     *  whatever their validity; not a number when the two dots coincide. */
    QPointF cursorLocation() const;
    /** The tilt of the line through dots 0 and 1, 0 to 90 degrees. */
    float cursorAngle() const;

private:
    explicit QKWiiRemote(std::shared_ptr<QKWiiRemoteTransport> transport,
                         QObject *parent = nullptr);

    struct Attempt;
    static void _connectInBackground(std::shared_ptr<Attempt> attempt,
                                     std::shared_ptr<QKWiiRemoteTransport> transport);
    void _channelsOpened(const QByteArray &device, int control, int interrupt);
    void _readChannel(int fd);
    void _disconnected();
    void _stopReading();
    void _reportError(int code);
    void _updateLEDs();
    void _updateEnabling();

    struct Private;
    std::unique_ptr<Private> d;
};
