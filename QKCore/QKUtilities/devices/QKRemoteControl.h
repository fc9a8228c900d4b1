#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QString>

#include <memory>

class QKRemoteControl;
class QKRemoteControlDevice;

/**
 * Receives the presses of the infrared remote. Each method is called once per press (never
 * for a release) with the receiver; the default bodies do nothing, so a delegate implements
 * only the buttons it cares about.
 */
class QKUTILITIES_EXPORT QKRemoteControlDelegate
{
public:
    virtual ~QKRemoteControlDelegate();

    virtual void menuClicked(QKRemoteControl *remote);
    virtual void playClicked(QKRemoteControl *remote);
    virtual void nextClicked(QKRemoteControl *remote);
    virtual void previousClicked(QKRemoteControl *remote);
    virtual void volumeUpClicked(QKRemoteControl *remote);
    virtual void volumeDownClicked(QKRemoteControl *remote);
};

/**
 * The machine's infrared remote receiver, taken exclusively so that the desktop does not act
 * on its presses as well. One per process, reached through remoteControl().
 *
 * The receiver is disabled (no queue), enabled (queue built and device seized, but no events
 * flow) or running (after start()). Creating it enables it; the host calls start() and
 * stop(); the application quitting disables it, which releases the device.
 *
 * Events are read on the thread that enabled the receiver (the GUI thread). Failures are
 * logged as warnings under the domain "QKRemoteControl"; nothing is shown or thrown.
 */
class QKUTILITIES_EXPORT QKRemoteControl : public QObject
{
    Q_OBJECT

public:
    /** The shared receiver over QKRemoteControlDevice::evdev(), created on first use. */
    static QKRemoteControl *remoteControl();
    /** The shared receiver, created over @p device when there is none yet; otherwise
     *  @p device is discarded and the existing receiver returned. */
    static QKRemoteControl *remoteControlWithDevice(std::unique_ptr<QKRemoteControlDevice> device);
    /** Destroys the shared receiver, releasing its device; the next remoteControl() makes a
     *  new one. */
    static void dispose();

    ~QKRemoteControl() override;

    QKRemoteControlDelegate *delegate() const;
    /** @p delegate is not owned; it must outlive the receiver or be unset first. */
    void setDelegate(QKRemoteControlDelegate *delegate);

    /** True exactly when a queue exists, even one whose building failed part-way. */
    bool enabled() const;
    /** True builds the queue when there is none; false stops and disposes of it and
     *  releases the device. Any other combination does nothing. */
    void setEnabled(bool enabled);
    /** True after start() until stop() or disabling. */
    bool isRunning() const;
    /** Lets events flow; does nothing without a queue. */
    void start();
    /** Stops events; presses meanwhile are dropped. Does nothing without a queue. */
    void stop();

    /** The message of the last failure, empty when there was none. */
    QString errorString() const;

    /** Drains the queue and calls the delegate once per press; a non-zero @p result (a read
     *  error) drains nothing, so the events wait for the next good call. */
    void remoteControlEvent(int result);

    void applicationWillTerminate();

private:
    explicit QKRemoteControl(std::unique_ptr<QKRemoteControlDevice> device,
                             QObject *parent = nullptr);
    void _initQueue();
    void _readDevice();
    void _pauseReading();
    void _dispose();

    struct Private;
    std::unique_ptr<Private> d;
};
