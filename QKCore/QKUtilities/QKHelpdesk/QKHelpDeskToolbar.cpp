#include "QKHelpDeskToolbar.h"

#include <QKUserDefaults.h>

#include <QAction>
#include <QActionGroup>
#include <QCursor>
#include <QMenu>

namespace {

const char *const ItemIdentifierProperty = "itemIdentifier";
const QString ItemIdentifiersKey = QStringLiteral("TB Item Identifiers");

bool isStandardItem(const QString &identifier)
{
    return identifier == QKHelpDeskToolbar::SeparatorItemIdentifier ||
           identifier == QKHelpDeskToolbar::SpaceItemIdentifier ||
           identifier == QKHelpDeskToolbar::FlexibleSpaceItemIdentifier ||
           identifier == QKHelpDeskToolbar::CustomizeToolbarItemIdentifier;
}

QWidget *spacer(bool flexible)
{
    auto *widget = new QWidget;
    if (flexible)
        widget->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    else
        widget->setFixedWidth(16);
    return widget;
}

} // namespace

QKHelpDeskToolbarDelegate::~QKHelpDeskToolbarDelegate() = default;

struct QKHelpDeskToolbar::Private
{
    explicit Private(QKHelpDeskToolbar *toolbar) : q(toolbar) {}

    QList<QAction *> items() const;
    QAction *makeItem(const QString &identifier, QAction *before);
    QString labelFor(const QString &identifier) const;
    void insertInAllowedOrder(const QString &identifier);
    void removeAll(const QString &identifier);
    void replaceItems(const QStringList &identifiers);
    void save() const;

    QKHelpDeskToolbar *q;
    QString identifier;
    QKHelpDeskToolbarDelegate *delegate = nullptr;
    bool allowsUserCustomization = false;
    bool autosavesConfiguration = false;
    QString selected;
    QActionGroup *selectionGroup = nullptr;
};

QKHelpDeskToolbar::QKHelpDeskToolbar(const QString &identifier, QWidget *parent)
    : QToolBar(parent), d(std::make_unique<Private>(this))
{
    d->identifier = identifier;
    d->selectionGroup = new QActionGroup(this);
    d->selectionGroup->setExclusionPolicy(QActionGroup::ExclusionPolicy::ExclusiveOptional);
    setObjectName(identifier);
    setMovable(false);
    setFloatable(false);
    setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    setIconSize(QSize(32, 32));
    setContextMenuPolicy(Qt::CustomContextMenu);
    connect(this, &QWidget::customContextMenuRequested, this, [this](const QPoint &position) {
        if (!d->allowsUserCustomization)
            return;
        std::unique_ptr<QMenu> menu(createCustomizationMenu(actionAt(position), this));
        menu->exec(mapToGlobal(position));
    });
}

QKHelpDeskToolbar::~QKHelpDeskToolbar() = default;

QString QKHelpDeskToolbar::itemIdentifier(const QAction *item)
{
    return item ? item->property(ItemIdentifierProperty).toString() : QString();
}

void QKHelpDeskToolbar::setItemIdentifier(QAction *item, const QString &identifier)
{
    item->setProperty(ItemIdentifierProperty, identifier);
}

QString QKHelpDeskToolbar::identifier() const
{
    return d->identifier;
}

QString QKHelpDeskToolbar::configurationDefaultsKey() const
{
    return QStringLiteral("NSToolbar Configuration %1").arg(d->identifier);
}

void QKHelpDeskToolbar::setDelegate(QKHelpDeskToolbarDelegate *delegate)
{
    d->delegate = delegate;
    if (!delegate)
        return;
    const QVariant saved = d->autosavesConfiguration
                               ? QKUserDefaults::standardUserDefaults()
                                     ->dictionaryForKey(configurationDefaultsKey())
                                     .value(ItemIdentifiersKey)
                               : QVariant();
    const bool usable =
        saved.typeId() == QMetaType::QVariantList || saved.typeId() == QMetaType::QStringList;
    // Loading is not a change, so nothing is saved here.
    d->replaceItems(usable ? saved.toStringList() : delegate->toolbarDefaultItemIdentifiers(this));
}

QKHelpDeskToolbarDelegate *QKHelpDeskToolbar::delegate() const
{
    return d->delegate;
}

void QKHelpDeskToolbar::setAllowsUserCustomization(bool allows)
{
    d->allowsUserCustomization = allows;
}

bool QKHelpDeskToolbar::allowsUserCustomization() const
{
    return d->allowsUserCustomization;
}

void QKHelpDeskToolbar::setAutosavesConfiguration(bool autosaves)
{
    const bool reload = autosaves && !d->autosavesConfiguration;
    d->autosavesConfiguration = autosaves;
    if (reload && d->delegate)
        setDelegate(d->delegate);
}

bool QKHelpDeskToolbar::autosavesConfiguration() const
{
    return d->autosavesConfiguration;
}

QStringList QKHelpDeskToolbar::itemIdentifiers() const
{
    QStringList identifiers;
    for (const QAction *item : d->items())
        identifiers << itemIdentifier(item);
    return identifiers;
}

QAction *QKHelpDeskToolbar::itemWithIdentifier(const QString &identifier) const
{
    for (QAction *item : actions()) {
        if (itemIdentifier(item) == identifier)
            return item;
    }
    return nullptr;
}

void QKHelpDeskToolbar::insertItemWithItemIdentifier(const QString &identifier, int index)
{
    const QList<QAction *> items = d->items();
    QAction *before = index >= 0 && index < items.size() ? items.at(index) : nullptr;
    if (d->makeItem(identifier, before))
        d->save();
}

void QKHelpDeskToolbar::removeItemAtIndex(int index)
{
    const QList<QAction *> items = d->items();
    if (index < 0 || index >= items.size())
        return;
    removeAction(items.at(index));
    items.at(index)->deleteLater();
    d->save();
}

void QKHelpDeskToolbar::setItemIdentifiers(const QStringList &identifiers)
{
    d->replaceItems(identifiers);
    d->save();
}

void QKHelpDeskToolbar::setSelectedItemIdentifier(const QString &identifier)
{
    d->selected = identifier;
    for (QAction *item : d->selectionGroup->actions())
        item->setChecked(itemIdentifier(item) == identifier);
}

QString QKHelpDeskToolbar::selectedItemIdentifier() const
{
    return d->selected;
}

QMenu *QKHelpDeskToolbar::createCustomizationMenu(QAction *itemUnderCursor, QWidget *parent)
{
    auto *menu = new QMenu(parent);
    if (!d->delegate)
        return menu;
    const QStringList allowed = d->delegate->toolbarAllowedItemIdentifiers(this);
    const QStringList shown = itemIdentifiers();
    const int underIndex = int(d->items().indexOf(itemUnderCursor));
    if (underIndex >= 0) {
        const QString label = d->labelFor(itemIdentifier(itemUnderCursor));
        connect(menu->addAction(tr("Remove “%1”").arg(label)), &QAction::triggered, this,
                [this, underIndex] { removeItemAtIndex(underIndex); });
        menu->addSeparator();
    }
    for (const QString &identifier : allowed) {
        if (isStandardItem(identifier) && identifier != CustomizeToolbarItemIdentifier)
            continue;
        QAction *toggle = menu->addAction(d->labelFor(identifier));
        toggle->setCheckable(true);
        toggle->setChecked(shown.contains(identifier));
        connect(toggle, &QAction::toggled, this, [this, identifier](bool on) {
            if (on)
                d->insertInAllowedOrder(identifier);
            else
                d->removeAll(identifier);
            d->save();
        });
    }
    menu->addSeparator();
    const std::pair<QLatin1String, QString> spaces[] = {
        {SeparatorItemIdentifier, tr("Add Separator")},
        {SpaceItemIdentifier, tr("Add Space")},
        {FlexibleSpaceItemIdentifier, tr("Add Flexible Space")},
    };
    for (const auto &[identifier, text] : spaces) {
        if (!allowed.contains(identifier))
            continue;
        const int index = underIndex >= 0 ? underIndex : int(shown.size());
        connect(menu->addAction(text), &QAction::triggered, this,
                [this, identifier, index] { insertItemWithItemIdentifier(identifier, index); });
    }
    menu->addSeparator();
    connect(menu->addAction(tr("Use Default Set")), &QAction::triggered, this,
            [this] { setItemIdentifiers(d->delegate->toolbarDefaultItemIdentifiers(this)); });
    return menu;
}

QList<QAction *> QKHelpDeskToolbar::Private::items() const
{
    QList<QAction *> items;
    for (QAction *item : q->actions()) {
        if (!itemIdentifier(item).isEmpty())
            items << item;
    }
    return items;
}

QAction *QKHelpDeskToolbar::Private::makeItem(const QString &identifier, QAction *before)
{
    if (!delegate || !delegate->toolbarAllowedItemIdentifiers(q).contains(identifier))
        return nullptr;
    QAction *item = nullptr;
    if (identifier == SeparatorItemIdentifier) {
        item = q->insertSeparator(before);
    } else if (identifier == SpaceItemIdentifier || identifier == FlexibleSpaceItemIdentifier) {
        item = q->insertWidget(before, spacer(identifier == FlexibleSpaceItemIdentifier));
    } else if (identifier == CustomizeToolbarItemIdentifier) {
        item = new QAction(QKHelpDeskToolbar::tr("Customize"), q);
        QObject::connect(item, &QAction::triggered, q, [this, item] {
            QWidget *button = q->widgetForAction(item);
            std::unique_ptr<QMenu> menu(q->createCustomizationMenu(item, q));
            menu->exec(button ? button->mapToGlobal(QPoint(0, button->height())) : QCursor::pos());
        });
        q->insertAction(before, item);
    } else {
        item = delegate->toolbarItemForItemIdentifier(q, identifier, true);
        if (!item)
            return nullptr;
        item->setParent(q);
        if (delegate->toolbarSelectableItemIdentifiers(q).contains(identifier)) {
            item->setCheckable(true);
            item->setChecked(identifier == selected);
            selectionGroup->addAction(item);
            // A click on the selected item keeps it selected.
            QObject::connect(item, &QAction::triggered, q,
                             [this, identifier] { q->setSelectedItemIdentifier(identifier); });
        }
        q->insertAction(before, item);
    }
    setItemIdentifier(item, identifier);
    return item;
}

QString QKHelpDeskToolbar::Private::labelFor(const QString &identifier) const
{
    if (identifier == SeparatorItemIdentifier)
        return QKHelpDeskToolbar::tr("Separator");
    if (identifier == SpaceItemIdentifier)
        return QKHelpDeskToolbar::tr("Space");
    if (identifier == FlexibleSpaceItemIdentifier)
        return QKHelpDeskToolbar::tr("Flexible Space");
    if (identifier == CustomizeToolbarItemIdentifier)
        return QKHelpDeskToolbar::tr("Customize");
    const std::unique_ptr<QAction> probe(
        delegate ? delegate->toolbarItemForItemIdentifier(q, identifier, false) : nullptr);
    return probe && !probe->text().isEmpty() ? probe->text() : identifier;
}

void QKHelpDeskToolbar::Private::insertInAllowedOrder(const QString &identifier)
{
    // Before the first shown item that the allowed list puts after this one.
    const QStringList allowed = delegate->toolbarAllowedItemIdentifiers(q);
    const qsizetype rank = allowed.indexOf(identifier);
    QAction *before = nullptr;
    for (QAction *item : items()) {
        const QString shown = itemIdentifier(item);
        if (!isStandardItem(shown) && allowed.indexOf(shown) > rank) {
            before = item;
            break;
        }
    }
    makeItem(identifier, before);
}

void QKHelpDeskToolbar::Private::removeAll(const QString &identifier)
{
    for (QAction *item : items()) {
        if (itemIdentifier(item) == identifier) {
            q->removeAction(item);
            item->deleteLater();
        }
    }
}

void QKHelpDeskToolbar::Private::replaceItems(const QStringList &identifiers)
{
    for (QAction *item : items()) {
        q->removeAction(item);
        item->deleteLater();
    }
    for (const QString &identifier : identifiers)
        makeItem(identifier, nullptr);
}

void QKHelpDeskToolbar::Private::save() const
{
    if (!autosavesConfiguration)
        return;
    QKUserDefaults::standardUserDefaults()->setObject(
        QVariantMap{{ItemIdentifiersKey, q->itemIdentifiers()}}, q->configurationDefaultsKey());
}
