#pragma once

#include <QObject>

/**
 * Tells apart the closes and hides the user makes from those of quitting: Qt closes every
 * window within the delivery of the application's quit event. Should a window refuse and
 * the application go on, closes count again from the next pass of the event loop.
 */
class QKQuitWatcher : public QObject
{
public:
    /** Watches the application, if there is one yet, for as long as @p parent lives. */
    explicit QKQuitWatcher(QObject *parent);

    /** True while the application is closing its windows to quit. */
    bool isQuitting() const { return m_quitting; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool m_quitting = false;
};
