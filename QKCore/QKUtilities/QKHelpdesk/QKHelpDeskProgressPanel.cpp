#include "QKHelpDeskProgressPanel.h"
#include "ui_QKHelpDeskProgressPanel.h"

#include <QCloseEvent>
#include <QDateTime>
#include <QTimer>

#include <atomic>

namespace {

constexpr double redrawInterval = 0.5;
constexpr int closeDelayMs = 2000;
constexpr int barMaximum = 1000;
// 2001-01-01T00:00:00Z in seconds since 1970, the origin of the platform's time stamps.
constexpr qint64 referenceDateOffset = 978307200;

} // namespace

struct QKHelpDeskProgressPanel::Private
{
    Ui::QKHelpDeskProgressPanel ui;
    Clock clock;
    QTimer closeTimer;
    double nextProgressUpdate = 0.0;
    int redrawCount = 0;
    bool sessionRunning = false;
    bool inModalPass = false;
    bool indeterminate = false;
    std::atomic<bool> cancelled{false};
};

QKHelpDeskProgressPanel::QKHelpDeskProgressPanel(QWidget *window)
    : QDialog(window), d(std::make_unique<Private>())
{
    d->ui.setupUi(this);
    setWindowModality(Qt::WindowModal);
    d->ui.progressProgressBar->setRange(0, barMaximum);
    d->closeTimer.setSingleShot(true);
    d->closeTimer.setInterval(closeDelayMs);
    connect(&d->closeTimer, &QTimer::timeout, this, &QKHelpDeskProgressPanel::closeProgressPanel);
    connect(d->ui.progressCancelButton, &QPushButton::clicked, this,
            &QKHelpDeskProgressPanel::cancelProgress);
}

QKHelpDeskProgressPanel::~QKHelpDeskProgressPanel() = default;

double QKHelpDeskProgressPanel::timeIntervalSinceReferenceDate()
{
    return double(QDateTime::currentMSecsSinceEpoch() - referenceDateOffset * 1000) / 1000.0;
}

void QKHelpDeskProgressPanel::setClock(Clock clock)
{
    d->clock = std::move(clock);
}

void QKHelpDeskProgressPanel::setProgressPanelTitle(const QString &title)
{
    d->ui.progressTitleText->setText(title);
}

QString QKHelpDeskProgressPanel::progressPanelTitle() const
{
    return d->ui.progressTitleText->text();
}

void QKHelpDeskProgressPanel::setProgressIsIndeterminate(bool indeterminate)
{
    // A range of 0 to 0 is Qt's busy indicator, which animates on its own.
    d->indeterminate = indeterminate;
    const int value = d->ui.progressProgressBar->value();
    d->ui.progressProgressBar->setRange(0, indeterminate ? 0 : barMaximum);
    if (!indeterminate)
        d->ui.progressProgressBar->setValue(qMax(0, value));
}

bool QKHelpDeskProgressPanel::progressIsIndeterminate() const
{
    return d->indeterminate;
}

void QKHelpDeskProgressPanel::setProgressCancelable(bool cancelable)
{
    d->ui.progressCancelButton->setEnabled(cancelable);
}

bool QKHelpDeskProgressPanel::progressIsCancelable() const
{
    return d->ui.progressCancelButton->isEnabled();
}

void QKHelpDeskProgressPanel::openProgressPanel()
{
    if (isVisible())
        return;
    setBarValue(0.0);
    show();
    raise();
    d->sessionRunning = true;
    d->cancelled = false;
    d->nextProgressUpdate =
        (d->clock ? d->clock() : timeIntervalSinceReferenceDate()) + redrawInterval;
}

int QKHelpDeskProgressPanel::progressUpdate(double fraction)
{
    const double now = d->clock ? d->clock() : timeIntervalSinceReferenceDate();
    if (now >= d->nextProgressUpdate) {
        setBarValue(fraction);
        d->ui.progressProgressBar->repaint();
        ++d->redrawCount;
        d->nextProgressUpdate += redrawInterval;
    }
    if (!d->sessionRunning)
        return AbortedResponse;
    if (!d->inModalPass) {
        d->inModalPass = true;
        QCoreApplication::processEvents();
        d->inModalPass = false;
    }
    if (!d->sessionRunning)
        return AbortedResponse;
    return d->cancelled ? StoppedResponse : ContinuesResponse;
}

void QKHelpDeskProgressPanel::cancelProgress()
{
    if (!d->sessionRunning)
        return;
    d->cancelled = true;
}

void QKHelpDeskProgressPanel::closeProgressPanelWithMessage(const QString &message)
{
    if (!isVisible())
        return;
    setProgressIsIndeterminate(false);
    setBarValue(1.0);
    setProgressPanelTitle(message);
    setProgressCancelable(false);
    d->closeTimer.start();
}

void QKHelpDeskProgressPanel::closeProgressPanel()
{
    d->sessionRunning = false;
    hide();
    setBarValue(0.0);
}

bool QKHelpDeskProgressPanel::isSessionRunning() const
{
    return d->sessionRunning;
}

bool QKHelpDeskProgressPanel::isCancelled() const
{
    return d->cancelled;
}

const std::atomic<bool> *QKHelpDeskProgressPanel::cancelFlag() const
{
    return &d->cancelled;
}

double QKHelpDeskProgressPanel::progressValue() const
{
    const QProgressBar *bar = d->ui.progressProgressBar;
    return bar->maximum() > 0 ? double(qMax(0, bar->value())) / bar->maximum() : 0.0;
}

double QKHelpDeskProgressPanel::nextProgressUpdate() const
{
    return d->nextProgressUpdate;
}

int QKHelpDeskProgressPanel::redrawCount() const
{
    return d->redrawCount;
}

void QKHelpDeskProgressPanel::reject()
{
    if (progressIsCancelable())
        cancelProgress();
}

void QKHelpDeskProgressPanel::closeEvent(QCloseEvent *event)
{
    event->ignore();
    reject();
}

void QKHelpDeskProgressPanel::setBarValue(double fraction)
{
    // An unknown length gives a negative fraction: the bar stays at its minimum.
    const int value = fraction <= 0.0 ? 0 : qMin(barMaximum, int(fraction * barMaximum));
    d->ui.progressProgressBar->setValue(value);
}
