#include "QKAlert.h"

#include "QKApplication.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QMutex>
#include <QPointer>
#include <QPushButton>
#include <QWindow>

namespace {

QMutex s_mutex;
QKAlert::Answerer s_alertAnswerer;
QList<QKAlertRequest> s_shownAlerts;
QKFilePanels::Answerer s_panelAnswerer;

int showMessageBox(const QKAlertRequest &request)
{
    // Only a parent the caller names owns the box. The window in front may be a splash
    // screen that its own launch work deletes while the box runs its modal loop, and a
    // child would go with it: the box merely stays above that window.
    const QPointer<QMessageBox> box = new QMessageBox(request.parent);
    box->setWindowTitle(QKApplication::currentName());
    box->setIcon(request.style == QKAlertRequest::Style::Informational ? QMessageBox::Information
                                                                       : QMessageBox::Warning);
    box->setText(request.message);
    box->setInformativeText(request.informativeText);
    const QStringList titles =
        request.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : request.buttons;
    QList<QAbstractButton *> buttons;
    for (int i = 0; i < titles.size(); ++i) {
        // Roles only decide placement; the first button is the default, as on every alert.
        const auto role = i == 0 ? QMessageBox::AcceptRole
                                 : (i == 1 ? QMessageBox::RejectRole : QMessageBox::ActionRole);
        QPushButton *button = box->addButton(titles.at(i), role);
        if (i == 0)
            box->setDefaultButton(button);
        buttons << button;
    }
    if (!request.parent) {
        if (const QWidget *front = QApplication::activeWindow(); front && front->windowHandle()) {
            box->winId();
            box->windowHandle()->setTransientParent(front->windowHandle());
        }
    }
    box->exec();
    // A named parent that went away took the box with it: that counts as the last button.
    if (!box)
        return int(titles.size()) - 1;
    const int index = int(buttons.indexOf(box->clickedButton()));
    delete box.data();
    return index < 0 ? int(titles.size()) - 1 : index;
}

QString filterFor(const QStringList &types)
{
    if (types.isEmpty())
        return QString();
    QStringList patterns;
    for (const QString &type : types)
        patterns << QStringLiteral("*.") + type;
    return QStringLiteral("%1 (%2)").arg(types.join(QStringLiteral(", ")), patterns.join(' '));
}

} // namespace

int QKAlert::runModal(const QKAlertRequest &request)
{
    Answerer answerer;
    {
        QMutexLocker lock(&s_mutex);
        s_shownAlerts.append(request);
        answerer = s_alertAnswerer;
    }
    return answerer ? answerer(request) : showMessageBox(request);
}

int QKAlert::runModal(const QString &message, const QString &informativeText,
                      const QStringList &buttons)
{
    QKAlertRequest request;
    request.message = message;
    request.informativeText = informativeText;
    request.buttons = buttons;
    return runModal(request);
}

void QKAlert::setAnswerer(Answerer answerer)
{
    QMutexLocker lock(&s_mutex);
    s_alertAnswerer = std::move(answerer);
    s_shownAlerts.clear();
}

QList<QKAlertRequest> QKAlert::shownAlerts()
{
    QMutexLocker lock(&s_mutex);
    return s_shownAlerts;
}

QStringList QKFilePanels::runOpenPanel(const QKFilePanelRequest &request)
{
    if (s_panelAnswerer)
        return s_panelAnswerer(request, false);
    const QString filter = filterFor(request.fileTypes);
    if (request.allowsMultipleSelection)
        return QFileDialog::getOpenFileNames(request.parent, request.title, request.directory,
                                             filter);
    const QString path =
        QFileDialog::getOpenFileName(request.parent, request.title, request.directory, filter);
    return path.isEmpty() ? QStringList() : QStringList{path};
}

QString QKFilePanels::runSavePanel(const QKFilePanelRequest &request)
{
    QString path;
    if (s_panelAnswerer) {
        const QStringList answer = s_panelAnswerer(request, true);
        path = answer.value(0);
    } else {
        path = QFileDialog::getSaveFileName(request.parent, request.title, request.directory,
                                            filterFor(request.fileTypes));
    }
    if (!path.isEmpty() && !request.fileTypes.isEmpty()) {
        const QString suffix = QLatin1Char('.') + request.fileTypes.first();
        if (!path.endsWith(suffix))
            path += suffix;
    }
    return path;
}

void QKFilePanels::setAnswerer(Answerer answerer)
{
    s_panelAnswerer = std::move(answerer);
}
