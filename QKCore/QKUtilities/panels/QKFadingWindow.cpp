#include "QKFadingWindow.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>

struct QKFadingWindow::Private
{
    // Declared before the animation, so that the animation goes first.
    std::unique_ptr<QWidget> window;
    std::unique_ptr<QPropertyAnimation> fade;

    void fadeTo(int msecs, qreal opacity)
    {
        fade->setDuration(msecs);
        fade->setStartValue(window->windowOpacity());
        fade->setEndValue(opacity);
        fade->start();
    }
};

QKFadingWindow::QKFadingWindow(Qt::WindowType type, const QString &objectName, QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->window = std::make_unique<QWidget>(nullptr, type | Qt::FramelessWindowHint);
    d->window->setObjectName(objectName);
    d->window->setAttribute(Qt::WA_TranslucentBackground);
    d->fade = std::make_unique<QPropertyAnimation>(d->window.get(), "windowOpacity");
    connect(d->fade.get(), &QAbstractAnimation::finished, this, &QKFadingWindow::fadeDidStop);
}

QKFadingWindow::~QKFadingWindow() = default;

void QKFadingWindow::keepUntilApplicationEnds(QObject *owner, void (*destroy)())
{
    owner->setParent(QCoreApplication::instance());
    // Post routines run first thing in the application's destructor.
    qRemovePostRoutine(destroy);
    qAddPostRoutine(destroy);
}

QWidget *QKFadingWindow::window() const
{
    return d->window.get();
}

void QKFadingWindow::setContentView(QWidget *view)
{
    auto *layout = new QVBoxLayout(d->window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view);
    d->window->setFixedSize(view->size());
}

void QKFadingWindow::open(int fadeMsecs)
{
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        QRect frame = d->window->geometry();
        frame.moveCenter(screen->availableGeometry().center());
        d->window->move(frame.topLeft());
    }
    d->fade->stop();
    d->window->setWindowOpacity(fadeMsecs > 0 ? 0.0 : 1.0);
    d->window->show();
    d->window->raise();
    d->window->activateWindow();
    if (fadeMsecs > 0)
        d->fadeTo(fadeMsecs, 1.0);
}

void QKFadingWindow::close(int fadeMsecs)
{
    d->fade->stop();
    if (fadeMsecs > 0 && d->window->isVisible()) {
        d->fadeTo(fadeMsecs, 0.0);
        return;
    }
    d->window->close();
    Q_EMIT closed();
}

void QKFadingWindow::fadeDidStop()
{
    // The fade-in ends here too; only a finished fade-out closes the window.
    if (d->window->windowOpacity() != 0.0)
        return;
    d->window->close();
    Q_EMIT closed();
}

bool QKFadingWindow::isVisible() const
{
    return d->window->isVisible();
}
