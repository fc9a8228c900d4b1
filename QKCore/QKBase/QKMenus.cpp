#include "QKMenus.h"

#include "QKResponderChain.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>

const char *const QKMenus::ActionProperty = "qkAction";

namespace {

QAction *makeItem(QMenu *menu, const QString &title, const QByteArray &action,
                  const QString &keyEquivalent)
{
    auto *item = new QAction(title, menu);
    item->setProperty(QKMenus::ActionProperty, action);
    if (!keyEquivalent.isEmpty()) {
        // Shown in the menu only; Qt must not fire it a second time behind the registry.
        item->setShortcut(QKeySequence(Qt::CTRL | QKeySequence(keyEquivalent)[0].key()));
        item->setShortcutContext(Qt::WidgetShortcut);
    }
    QObject::connect(item, &QAction::triggered, item, [item] {
        QKResponderChain::sendAction(item->property(QKMenus::ActionProperty).toByteArray(),
                                     nullptr, item);
    });
    return item;
}

} // namespace

QAction *QKMenus::addItemWithTitle(QMenu *menu, const QString &title, const QByteArray &action,
                                   const QString &keyEquivalent)
{
    if (!menu)
        return nullptr;
    QAction *item = makeItem(menu, title, action, keyEquivalent);
    menu->addAction(item);
    return item;
}

QAction *QKMenus::addItemSortedWithTitle(QMenu *menu, const QString &title,
                                         const QByteArray &action, const QString &keyEquivalent)
{
    if (!menu)
        return nullptr;
    QAction *item = makeItem(menu, title, action, keyEquivalent);
    const QString key = plainTitle(title);
    QAction *before = nullptr;
    const QList<QAction *> items = menu->actions();
    for (QAction *existing : items) {
        if (plainTitle(existing->text()).compare(key, Qt::CaseInsensitive) > 0) {
            before = existing;
            break;
        }
    }
    menu->insertAction(before, item);
    return item;
}

QString QKMenus::plainTitle(const QString &title)
{
    QString plain;
    plain.reserve(title.size());
    for (qsizetype i = 0; i < title.size(); ++i) {
        if (title.at(i) == QLatin1Char('&')) {
            // "&&" stands for a literal ampersand.
            if (i + 1 < title.size() && title.at(i + 1) == QLatin1Char('&'))
                plain += title.at(++i);
            continue;
        }
        plain += title.at(i);
    }
    return plain;
}

QAction *QKMenus::itemWithTitle(const QMenu *menu, const QString &title)
{
    if (!menu)
        return nullptr;
    const QList<QAction *> items = menu->actions();
    for (QAction *item : items) {
        if (plainTitle(item->text()) == title)
            return item;
    }
    return nullptr;
}
