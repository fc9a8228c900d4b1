#include "QKSplashScreen.h"

#include "QKSplashScreenContentView.h"
#include "ui_QKSplashScreen.h"

#include <QKApplication.h>
#include <QKBundle.h>

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QRegularExpression>
#include <QScreen>
#include <QThread>
#include <QVBoxLayout>
#include <QWindow>

namespace {

QKSplashScreen *s_sharedSplash = nullptr;
QKSplashScreen::Clock s_clock;
int s_fadeDuration = 250;

// A host that uses a splash screen gets it around its launch work as soon as this library
// is loaded; the application class itself cannot know about it.
void installLaunchWrapper()
{
    QKApplication::setLaunchWrapper(&QKSplashScreen::finishLaunching);
}
Q_CONSTRUCTOR_FUNCTION(installLaunchWrapper)

// A splash still open when the application ends must go before the application object
// dismantles its widget state; post routines run first thing in its destructor.
void destroySharedSplash()
{
    delete s_sharedSplash;
}

QString applicationName()
{
    const QKApplication *app = QKApplication::sharedApplication();
    return app ? app->name() : QCoreApplication::applicationName();
}

} // namespace

struct QKSplashScreen::Private
{
    // Declared before the animation, so that the animation goes first.
    std::unique_ptr<QWidget> window;
    QKSplashScreenContentView *contentView = nullptr;
    Ui::QKSplashScreen ui;
    std::unique_ptr<QPropertyAnimation> fade;
};

QKSplashScreen *QKSplashScreen::splashScreen()
{
    if (!s_sharedSplash) {
        s_sharedSplash = new QKSplashScreen;
        s_sharedSplash->setParent(QCoreApplication::instance());
        qRemovePostRoutine(destroySharedSplash);
        qAddPostRoutine(destroySharedSplash);
    }
    return s_sharedSplash;
}

void QKSplashScreen::setAction(const QString &text)
{
    const QKApplication *app = QKApplication::sharedApplication();
    if (app && app->usesSplashScreen())
        splashScreen()->setActionText(text);
}

void QKSplashScreen::finishLaunching(const std::function<void()> &launchWork)
{
    splashScreen()->open();
    if (launchWork)
        launchWork();
    splashScreen()->close();
}

QString QKSplashScreen::versionString(const QString &shortVersion)
{
    static const std::pair<QLatin1String, QLatin1String> tags[] = {
        {QLatin1String("pb"), QLatin1String(" Public Beta ")},
        {QLatin1String("rc"), QLatin1String(" Release Candidate ")},
        {QLatin1String("b"), QLatin1String(" Beta ")},
        {QLatin1String("a"), QLatin1String(" Alpha ")},
    };
    QString version = shortVersion;
    for (const auto &[tag, spelledOut] : tags) {
        if (version.contains(tag))
            return version.replace(tag, spelledOut);
    }
    return version;
}

QString QKSplashScreen::copyrightString(const QString &copyright, int year)
{
    if (copyright.trimmed().isEmpty())
        return QStringLiteral("Copyright © %1 Velmora").arg(year);
    static const QRegularExpression range(QStringLiteral("(\\d{4})(\\s*[-–]\\s*)(\\d{4})"));
    QString line = copyright;
    const QRegularExpressionMatch rangeMatch = range.match(line);
    if (rangeMatch.hasMatch())
        return line.replace(rangeMatch.capturedStart(3), 4, QString::number(year));
    static const QRegularExpression single(QStringLiteral("\\b(\\d{4})\\b"));
    const QRegularExpressionMatch singleMatch = single.match(line);
    if (singleMatch.hasMatch() && singleMatch.captured(1).toInt() < year)
        line.insert(singleMatch.capturedEnd(1), QLatin1Char('-') + QString::number(year));
    return line;
}

void QKSplashScreen::setClock(Clock clock)
{
    s_clock = std::move(clock);
}

QDateTime QKSplashScreen::currentDateTime()
{
    return s_clock ? s_clock() : QDateTime::currentDateTime();
}

int QKSplashScreen::fadeDuration()
{
    return s_fadeDuration;
}

void QKSplashScreen::setFadeDuration(int msecs)
{
    s_fadeDuration = std::max(0, msecs);
}

QKSplashScreen::QKSplashScreen() : d(std::make_unique<Private>())
{
    d->window = std::make_unique<QWidget>(nullptr, Qt::SplashScreen | Qt::FramelessWindowHint);
    d->window->setObjectName(QStringLiteral("QKSplashScreen"));
    d->window->setAttribute(Qt::WA_TranslucentBackground);
    d->window->setWindowTitle(applicationName());
    d->contentView = new QKSplashScreenContentView(d->window.get());
    d->ui.setupUi(d->contentView);
    awakeFromNib();

    auto *layout = new QVBoxLayout(d->window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(d->contentView);
    d->window->setFixedSize(d->contentView->size());
}

QKSplashScreen::~QKSplashScreen()
{
    if (s_sharedSplash == this)
        s_sharedSplash = nullptr;
}

void QKSplashScreen::awakeFromNib()
{
    const QKBundle *bundle = QKBundle::mainBundle();
    d->ui.applicationNameText->setText(applicationName());
    d->ui.versionText->setText(versionString(
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
            .toString()));
    d->ui.copyrightText->setText(copyrightString(
        bundle->objectForInfoDictionaryKey(QStringLiteral("NSHumanReadableCopyright")).toString(),
        currentDateTime().date().year()));
}

void QKSplashScreen::setActionText(const QString &text)
{
    d->ui.actionText->setText(text + QStringLiteral("..."));
    // repaint() paints and flushes the window now; update() would wait for an event loop
    // that start-up work is not letting run.
    d->ui.actionText->repaint();
}

void QKSplashScreen::open()
{
    if (d->window->isVisible())
        return;
    if (d->fade)
        d->fade->stop();
    d->window->setWindowOpacity(1.0);
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        QRect frame = d->window->geometry();
        frame.moveCenter(screen->availableGeometry().center());
        d->window->move(frame.topLeft());
    }
    d->window->show();
    d->window->raise();
    d->window->activateWindow();

    // Until the window is exposed nothing can be drawn into it, and the launch work that
    // follows holds the main thread; wait briefly for the window system to map it.
    QElapsedTimer waited;
    waited.start();
    const QWindow *handle = d->window->windowHandle();
    while (handle && !handle->isExposed() && waited.elapsed() < 500) {
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        if (!handle->isExposed())
            QThread::msleep(5);
    }
}

void QKSplashScreen::close()
{
    if (s_fadeDuration > 0 && d->window->isVisible()) {
        if (!d->fade) {
            d->fade = std::make_unique<QPropertyAnimation>(d->window.get(), "windowOpacity");
            connect(d->fade.get(), &QAbstractAnimation::finished, this,
                    &QKSplashScreen::animationDidStop);
        }
        d->fade->stop();
        d->fade->setDuration(s_fadeDuration);
        d->fade->setStartValue(d->window->windowOpacity());
        d->fade->setEndValue(0.0);
        d->fade->start();
        return;
    }
    d->window->close();
    release();
}

void QKSplashScreen::animationDidStop()
{
    if (d->window->windowOpacity() != 0.0)
        return;
    d->window->close();
    release();
}

void QKSplashScreen::release()
{
    if (s_sharedSplash == this)
        s_sharedSplash = nullptr;
    deleteLater();
}

bool QKSplashScreen::isVisible() const
{
    return d->window->isVisible();
}

QWidget *QKSplashScreen::window() const
{
    return d->window.get();
}

QWidget *QKSplashScreen::contentView() const
{
    return d->contentView;
}
