#pragma once

#include "QKBaseGlobal.h"

#include <QByteArray>
#include <QString>

class QAction;
class QMenu;

/** Menu helpers: items that send an action along the responder chain. */
class QKBASE_EXPORT QKMenus
{
public:
    /** The property of a QAction that holds its action selector ("saveDocument:"). */
    static const char *const ActionProperty;

    /** A new item in @p menu that sends @p action along the responder chain when chosen.
     *  The key equivalent is shown, never bound: keys reach actions through the shortcut
     *  registry only. */
    static QAction *addItemWithTitle(QMenu *menu, const QString &title, const QByteArray &action,
                                     const QString &keyEquivalent = QString());

    /** Like addItemWithTitle, but inserted so that the menu stays in title order
     *  (case-insensitive, mnemonics ignored); separators and submenus count as items. */
    static QAction *addItemSortedWithTitle(QMenu *menu, const QString &title,
                                           const QByteArray &action,
                                           const QString &keyEquivalent = QString());

    /** The title without its mnemonic ampersands, as menu titles are compared. */
    static QString plainTitle(const QString &title);

    /** The item of @p menu whose plain title is @p title; null when none. */
    static QAction *itemWithTitle(const QMenu *menu, const QString &title);
};
