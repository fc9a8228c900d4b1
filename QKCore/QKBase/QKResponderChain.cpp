#include "QKResponderChain.h"

#include "QKApplication.h"

#include <QAction>
#include <QApplication>
#include <QHash>
#include <QMainWindow>
#include <QMetaMethod>
#include <QMutex>
#include <QWidget>

namespace {

QByteArray methodName(const QByteArray &action)
{
    const qsizetype colon = action.indexOf(':');
    return colon < 0 ? action : action.left(colon);
}

bool isCallable(const QMetaMethod &method)
{
    return method.methodType() == QMetaMethod::Slot || method.methodType() == QMetaMethod::Method;
}

// The best method for the action among those from @p firstIndex on: one taking the sender
// beats one taking a value, which beats one taking nothing.
QMetaMethod searchMethod(const QMetaObject *meta, const QByteArray &action, int firstIndex)
{
    const QByteArray name = methodName(action);
    QMetaMethod best;
    int bestRank = -1;
    for (int i = meta->methodCount() - 1; i >= firstIndex; --i) {
        const QMetaMethod method = meta->method(i);
        if (!isCallable(method) || method.name() != name || method.parameterCount() > 1)
            continue;
        int rank = 0;
        if (method.parameterCount() == 1)
            rank = method.parameterType(0) == QMetaType::QObjectStar ? 2 : 1;
        if (rank > bestRank) {
            best = method;
            bestRank = rank;
        }
    }
    return best;
}

// QWidget's own slots (showMinimized, close, raise...) act on windows: a widget inside a
// window does not answer them, so they travel on to the window, as window actions do.
int firstAnsweringMethod(const QObject *object)
{
    const auto *widget = qobject_cast<const QWidget *>(object);
    return widget && !widget->isWindow() ? QWidget::staticMetaObject.methodCount() : 0;
}

// Every key press walks the whole chain, so the answer per class and action is kept.
QMetaMethod findMethod(const QObject *object, const QByteArray &action)
{
    if (!object)
        return QMetaMethod();
    static QMutex mutex;
    using Key = std::pair<std::pair<const QMetaObject *, int>, QByteArray>;
    static QHash<Key, QMetaMethod> cache;
    const QMetaObject *meta = object->metaObject();
    const int firstIndex = firstAnsweringMethod(object);
    const Key key({meta, firstIndex}, action);
    QMutexLocker lock(&mutex);
    auto found = cache.constFind(key);
    if (found == cache.constEnd())
        found = cache.insert(key, searchMethod(meta, action, firstIndex));
    return found.value();
}

void appendChain(QList<QObject *> &chain, QWidget *window)
{
    if (!window)
        return;
    for (QWidget *widget = window->focusWidget(); widget && widget != window;
         widget = widget->parentWidget()) {
        if (!chain.contains(widget))
            chain << widget;
    }
    if (!chain.contains(window))
        chain << window;
}

QWidget *mainWindow()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (qobject_cast<QMainWindow *>(window) && window->isVisible())
            return window;
    }
    return nullptr;
}

} // namespace

QList<QObject *> QKResponderChain::responders()
{
    QList<QObject *> chain;
    QWidget *keyWindow = QApplication::activeWindow();
    appendChain(chain, keyWindow);
    if (QWidget *main = mainWindow(); main != keyWindow)
        appendChain(chain, main);
    if (QCoreApplication *app = QCoreApplication::instance())
        chain << app;
    if (QKApplication *app = QKApplication::sharedApplication())
        chain << app->delegate();
    return chain;
}

bool QKResponderChain::respondsToAction(const QObject *object, const QByteArray &action)
{
    return findMethod(object, action).isValid();
}

QObject *QKResponderChain::targetForAction(const QByteArray &action, QObject *target)
{
    if (action.isEmpty())
        return nullptr;
    if (target)
        return respondsToAction(target, action) ? target : nullptr;
    const QList<QObject *> chain = responders();
    for (QObject *responder : chain) {
        if (respondsToAction(responder, action))
            return responder;
    }
    return nullptr;
}

bool QKResponderChain::sendAction(const QByteArray &action, QObject *target, QObject *sender,
                                  const QVariant &argument)
{
    QObject *receiver = targetForAction(action, target);
    if (!receiver)
        return false;
    const QMetaMethod method = findMethod(receiver, action);
    if (method.parameterCount() == 0)
        return method.invoke(receiver, Qt::DirectConnection);
    const QMetaType type = method.parameterMetaType(0);
    if (type.id() == QMetaType::QObjectStar)
        return method.invoke(receiver, Qt::DirectConnection, Q_ARG(QObject *, sender));
    QVariant value = argument;
    if (!value.isValid() && sender)
        value = sender->property("tag");
    if (!value.convert(type))
        value = QVariant(type);
    return method.invoke(receiver, Qt::DirectConnection,
                         QGenericArgument(type.name(), value.constData()));
}

bool QKResponderChain::validateMenuItem(QObject *target, QAction *item, bool *answered)
{
    if (answered)
        *answered = false;
    if (!target)
        return true;
    const QMetaObject *meta = target->metaObject();
    const int index = meta->indexOfMethod("validateMenuItem(QAction*)");
    if (index < 0)
        return true;
    bool result = true;
    if (!meta->method(index).invoke(target, Qt::DirectConnection, Q_RETURN_ARG(bool, result),
                                    Q_ARG(QAction *, item)))
        return true;
    if (answered)
        *answered = true;
    return result;
}
