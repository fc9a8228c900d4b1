#include "QKQuitWatcher.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTimer>

QKQuitWatcher::QKQuitWatcher(QObject *parent) : QObject(parent)
{
    if (QCoreApplication *app = QCoreApplication::instance())
        app->installEventFilter(this);
}

bool QKQuitWatcher::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == QCoreApplication::instance() && event->type() == QEvent::Quit) {
        m_quitting = true;
        QTimer::singleShot(0, this, [this] { m_quitting = false; });
    }
    return false;
}
