#include "QKSplashScreen.h"

#include "QKFadingWindow.h"
#include "QKSplashScreenContentView.h"
#include "ui_QKSplashScreen.h"

#include <QKApplication.h>
#include <QKBundle.h>
#include <QKClock.h>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QThread>
#include <QWindow>

namespace {

QKSplashScreen *s_sharedSplash = nullptr;
int s_fadeDuration = 250;

// A host that uses a splash screen gets it around its launch work as soon as this library
// is loaded; the application class itself cannot know about it.
void installLaunchWrapper()
{
    QKApplication::setLaunchWrapper(&QKSplashScreen::finishLaunching);
}
Q_CONSTRUCTOR_FUNCTION(installLaunchWrapper)

void destroySharedSplash()
{
    delete s_sharedSplash;
}

} // namespace

struct QKSplashScreen::Private
{
    QKFadingWindow fading{Qt::SplashScreen, QStringLiteral("QKSplashScreen")};
    QKSplashScreenContentView *contentView = nullptr;
    Ui::QKSplashScreen ui;
};

QKSplashScreen *QKSplashScreen::splashScreen()
{
    if (!s_sharedSplash) {
        s_sharedSplash = new QKSplashScreen;
        QKFadingWindow::keepUntilApplicationEnds(s_sharedSplash, destroySharedSplash);
    }
    return s_sharedSplash;
}

void QKSplashScreen::setAction(const QString &text)
{
    const QKApplication *app = QKApplication::sharedApplication();
    if (app && app->usesSplashScreen())
        splashScreen()->setActionText(text);
}

void QKSplashScreen::setActionIfVisible(const QString &text)
{
    if (s_sharedSplash && s_sharedSplash->isVisible())
        s_sharedSplash->setActionText(text);
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
    d->fading.window()->setWindowTitle(QKApplication::currentName());
    d->contentView = new QKSplashScreenContentView(d->fading.window());
    d->ui.setupUi(d->contentView);
    awakeFromNib();
    d->fading.setContentView(d->contentView);
    connect(&d->fading, &QKFadingWindow::closed, this, &QKSplashScreen::release);
}

QKSplashScreen::~QKSplashScreen()
{
    if (s_sharedSplash == this)
        s_sharedSplash = nullptr;
}

void QKSplashScreen::awakeFromNib()
{
    const QKBundle *bundle = QKBundle::mainBundle();
    d->ui.applicationNameText->setText(QKApplication::currentName());
    d->ui.versionText->setText(versionString(
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
            .toString()));
    d->ui.copyrightText->setText(copyrightString(
        bundle->objectForInfoDictionaryKey(QStringLiteral("NSHumanReadableCopyright")).toString(),
        QKClock::now().date().year()));
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
    if (d->fading.isVisible())
        return;
    d->fading.open(0);

    // Until the window is exposed nothing can be drawn into it, and the launch work that
    // follows holds the main thread; wait briefly for the window system to map it.
    QElapsedTimer waited;
    waited.start();
    const QWindow *handle = d->fading.window()->windowHandle();
    while (handle && !handle->isExposed() && waited.elapsed() < 500) {
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        if (!handle->isExposed())
            QThread::msleep(5);
    }
}

void QKSplashScreen::close()
{
    d->fading.close(s_fadeDuration);
}

void QKSplashScreen::release()
{
    if (s_sharedSplash == this)
        s_sharedSplash = nullptr;
    deleteLater();
}

bool QKSplashScreen::isVisible() const
{
    return d->fading.isVisible();
}

QWidget *QKSplashScreen::window() const
{
    return d->fading.window();
}

QWidget *QKSplashScreen::contentView() const
{
    return d->contentView;
}
