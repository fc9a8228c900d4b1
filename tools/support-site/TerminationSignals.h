#pragma once

#include <QObject>

class QSocketNotifier;

/**
 * Turns SIGTERM and SIGINT into a queued quit of the application, so the event loop ends
 * normally and the database is closed. A signal handler may only write to a pipe; the
 * notifier reads it on the main thread.
 */
class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

    /** False when the pipe or the handlers could not be set up. */
    bool isValid() const { return m_notifier != nullptr; }

Q_SIGNALS:
    /** A termination signal arrived; carries its number. */
    void terminationRequested(int signal);

private:
    void readSignal();

    QSocketNotifier *m_notifier = nullptr;
};
