#include "QKScrollWheelManager.h"

#include "QKCapsLock.h"
#include "QKPanelFrame.h"
#include "QKQuitWatcher.h"
#include "QKScrollWheelActionsModel.h"
#include "QKScrollWheelPopUpDelegate.h"
#include "ui_QKScrollWheelManager.h"

#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKEvents.h>
#include <QKPropertyList.h>
#include <QKResponderChain.h>
#include <QKUserDefaults.h>

#include <QApplication>
#include <QHeaderView>
#include <QWheelEvent>

#include <optional>

const QString QKScrollWheelManager::ActionsKey = QStringLiteral("Scroll Wheel Actions");
const QString QKScrollWheelManager::OpenKey = QStringLiteral("Scroll Wheel Manager Open");
const QString QKScrollWheelManager::FrameKey = QStringLiteral("Scroll Wheel Manager Frame");

namespace {

const QString Domain = QStringLiteral("QKScrollWheelManager");
using Mapping = QKScrollWheelActionsModel;

const QRectF DefaultFrame(217, 544, 411, 187);
constexpr qreal PanelWidth = 411;
// Caps Lock, Shift, Control, Option and Command; the keypad bit never takes part.
constexpr quint32 ModifierMask = 0x1F0000;
// Qt measures wheels in eighths of a degree, 15 degrees a notch; actions get notches.
constexpr double AngleUnitsPerNotch = 120.0;

QKScrollWheelManager *s_defaultManager = nullptr;

bool isBool(const QVariant &value)
{
    return value.typeId() == QMetaType::Bool;
}

bool isString(const QVariant &value)
{
    return value.typeId() == QMetaType::QString;
}

// A mapping with every key of the right type ("reverse" may be missing: not reversed);
// nothing for anything else.
std::optional<QVariantMap> mappingFrom(const QVariant &value)
{
    if (value.typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    const QVariantMap map = value.toMap();
    const QVariant reverse = map.value(Mapping::ReverseKey, false);
    if (!isBool(map.value(Mapping::VerticalKey)) ||
        !QKPropertyList::isInteger(map.value(Mapping::ModifiersKey)) ||
        !isString(map.value(Mapping::ActionKey)) || !isBool(reverse))
        return std::nullopt;
    return QVariantMap{{Mapping::VerticalKey, map.value(Mapping::VerticalKey).toBool()},
                       {Mapping::ModifiersKey, map.value(Mapping::ModifiersKey).toLongLong()},
                       {Mapping::ActionKey, map.value(Mapping::ActionKey).toString()},
                       {Mapping::ReverseKey, reverse.toBool()}};
}

std::optional<QVariantMap> offeredActionFrom(const QVariant &value)
{
    if (value.typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    const QVariantMap map = value.toMap();
    if (!isString(map.value(Mapping::TitleKey)) || !isString(map.value(Mapping::ActionKey)))
        return std::nullopt;
    return QVariantMap{{Mapping::TitleKey, map.value(Mapping::TitleKey)},
                       {Mapping::ActionKey, map.value(Mapping::ActionKey)}};
}

void warn(const QObject *sender, const QString &message,
          std::source_location location = std::source_location::current())
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(Domain, sender, location),
                                           message);
}

// The dictionaries of @p list that @p convert accepts; the others are logged and left out,
// and so is the whole of a @p list that is not an array.
template<typename Convert>
QList<QVariantMap> dictionaries(const QVariant &list, const QString &what, Convert convert,
                                const QObject *sender)
{
    QList<QVariantMap> result;
    if (list.typeId() != QMetaType::QVariantList) {
        warn(sender, QStringLiteral("%1 is not an array; it is ignored").arg(what));
        return result;
    }
    const QVariantList items = list.toList();
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (const auto item = convert(items.at(i)))
            result << *item;
        else
            warn(sender, QStringLiteral("Entry %1 of %2 has the wrong shape; it is ignored")
                             .arg(i)
                             .arg(what));
    }
    return result;
}

} // namespace

struct QKScrollWheelManager::Private
{
    QKBundle *bundle = nullptr;
    QKScrollWheelActionsModel *model = nullptr;
    std::unique_ptr<QWidget> panel;
    Ui::QKScrollWheelManager ui;
    // Whether the user has the panel open. Qt hides every window when the application
    // quits; that hide is not the user's, so it is not counted.
    bool open = false;
    QKQuitWatcher *quitWatcher = nullptr;
};

QKScrollWheelManager::QKScrollWheelManager() : d(std::make_unique<Private>())
{
    d->model = new QKScrollWheelActionsModel(this);
    d->quitWatcher = new QKQuitWatcher(this);
    initialize();
    if (QCoreApplication *app = QCoreApplication::instance()) {
        connect(app, &QCoreApplication::aboutToQuit, this, [this] {
            applicationWillTerminate();
            // The panel must not outlive the application object.
            d->panel.reset();
        });
    }
}

QKScrollWheelManager::~QKScrollWheelManager()
{
    if (d->panel)
        d->panel->removeEventFilter(this);
    if (s_defaultManager == this)
        s_defaultManager = nullptr;
}

QKScrollWheelManager *QKScrollWheelManager::defaultManager()
{
    if (!s_defaultManager) {
        // Lives as long as the process, as hosts keep handing it wheel events; its panel
        // goes at quit, since no widget may outlive the application object.
        s_defaultManager = new QKScrollWheelManager;
    }
    return s_defaultManager;
}

void QKScrollWheelManager::initialize()
{
    QKUserDefaults::standardUserDefaults()->registerDefaults(
        {{OpenKey, false}, {FrameKey, NSStringFromRect(DefaultFrame)}});
}

void QKScrollWheelManager::loadActions()
{
    QKScrollWheelManager *manager = defaultManager();
    if (manager->d->panel)
        return;
    initialize();
    manager->d->panel = std::make_unique<QWidget>(nullptr, Qt::Tool);
    manager->d->ui.setupUi(manager->d->panel.get());
    manager->awakeFromNib();
}

void QKScrollWheelManager::openPanel()
{
    defaultManager()->_openPanel();
}

void QKScrollWheelManager::togglePanel()
{
    defaultManager()->_togglePanel();
}

void QKScrollWheelManager::scrollWheelEvent(const QWheelEvent *event, QObject *target)
{
    defaultManager()->_scrollWheelEvent(event, target);
}

void QKScrollWheelManager::awakeFromNib()
{
    QTableView *table = d->ui.table;
    table->setModel(d->model);
    auto *popUps = new QKScrollWheelPopUpDelegate(table);
    table->setItemDelegateForColumn(QKScrollWheelActionsModel::AxisColumn, popUps);
    table->setItemDelegateForColumn(QKScrollWheelActionsModel::ActionColumn, popUps);
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setSectionResizeMode(QKScrollWheelActionsModel::ActionColumn,
                                                    QHeaderView::Stretch);
    connect(d->model, &QAbstractItemModel::modelReset, this, &QKScrollWheelManager::openPopUps,
            Qt::UniqueConnection);
    connect(d->model, &QAbstractItemModel::modelReset, this,
            &QKScrollWheelManager::tableViewSelectionDidChange, Qt::UniqueConnection);
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &QKScrollWheelManager::tableViewSelectionDidChange);
    connect(d->ui.addActionButton, &QPushButton::clicked, this,
            [this] { addAction(d->ui.addActionButton); });
    connect(d->ui.removeActionButton, &QPushButton::clicked, this,
            [this] { removeAction(d->ui.removeActionButton); });

    QKBundle *resources = bundle();
    d->model->setOfferedActions(
        dictionaries(QKPropertyList::fromData(resources->dataForResource(
                         QStringLiteral("scrollWheelActions"), QStringLiteral("xml"))),
                     QStringLiteral("The resource scrollWheelActions"), offeredActionFrom, this));
    d->model->setActions(storedActions());

    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    QRectF frame = NSRectFromString(defaults->stringForKey(FrameKey));
    if (frame.isEmpty())
        frame = DefaultFrame;
    frame.setWidth(PanelWidth);
    d->panel->setGeometry(QKPanelFrame::toScreenGeometry(frame));
    d->panel->installEventFilter(this);
    d->open = false;
    if (defaults->boolForKey(OpenKey))
        _openPanel();
}

QList<QVariantMap> QKScrollWheelManager::storedActions() const
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    if (defaults->hasKey(ActionsKey)) {
        const QVariant stored = defaults->objectForKey(ActionsKey);
        if (stored.typeId() == QMetaType::QVariantList)
            return dictionaries(stored, QStringLiteral("The stored mapping"), mappingFrom, this);
        warn(this, QStringLiteral("The stored mapping is not an array; the default mapping "
                                  "is used instead"));
    }
    return dictionaries(QKPropertyList::fromData(bundle()->dataForResource(
                            QStringLiteral("scrollWheelActionDefaults"), QStringLiteral("xml"))),
                        QStringLiteral("The resource scrollWheelActionDefaults"), mappingFrom,
                        this);
}

void QKScrollWheelManager::_scrollWheelEvent(const QWheelEvent *event, QObject *target)
{
    if (!event)
        return;
    quint32 modifiers = QKEvents::modifierFlags(event->modifiers());
    if (QKCapsLock::isOn())
        modifiers |= Mapping::CapsLockMask;
    QPointF notches = QPointF(event->angleDelta()) / AngleUnitsPerNotch;
    // Qt's X11 platform turns the wheel sideways while Alt is held, as old X programs did;
    // rows with Option are meant for the wheel's own axis.
    if ((event->modifiers() & Qt::AltModifier) &&
        QGuiApplication::platformName() == QLatin1String("xcb"))
        notches = notches.transposed();
    _scrollWheel(notches.x(), notches.y(), modifiers, target);
}

bool QKScrollWheelManager::_scrollWheel(double deltaX, double deltaY, quint32 modifiers,
                                        QObject *target)
{
    const quint32 mask = modifiers & ModifierMask;
    // Not-a-number compares unequal to zero, so it counts as vertical movement too.
    const bool vertical = deltaY != 0;
    double amount = vertical ? deltaY : deltaX;
    const QList<QVariantMap> actions = d->model->actions();
    for (const QVariantMap &action : actions) {
        if (action.value(Mapping::VerticalKey).toBool() != vertical ||
            quint32(action.value(Mapping::ModifiersKey).toLongLong()) != mask)
            continue;
        if (action.value(Mapping::ReverseKey).toBool())
            amount = -amount;
        const QByteArray selector = action.value(Mapping::ActionKey).toString().toLatin1();
        if (!target || !QKResponderChain::respondsToAction(target, selector))
            return false;
        return QKResponderChain::sendAction(selector, target, this, amount);
    }
    return false;
}

void QKScrollWheelManager::addAction(QObject *)
{
    const QList<QVariantMap> offered = d->model->offeredActions();
    d->model->appendAction(
        {{Mapping::VerticalKey, true},
         {Mapping::ModifiersKey, qint64(0)},
         {Mapping::ActionKey,
          offered.isEmpty() ? QString() : offered.first().value(Mapping::ActionKey)},
         {Mapping::ReverseKey, false}});
}

void QKScrollWheelManager::removeAction(QObject *)
{
    if (!d->panel)
        return;
    const QModelIndexList selected = d->ui.table->selectionModel()->selectedRows();
    if (!selected.isEmpty())
        d->model->removeAction(selected.first().row());
}

void QKScrollWheelManager::_openPanel()
{
    if (!d->panel)
        return;
    d->panel->show();
    d->panel->raise();
    d->panel->activateWindow();
}

void QKScrollWheelManager::_togglePanel()
{
    if (!d->panel)
        return;
    if (d->panel->isVisible() && QApplication::activeWindow() == d->panel.get())
        d->panel->close();
    else
        _openPanel();
}

void QKScrollWheelManager::applicationWillTerminate()
{
    if (!d->panel)
        return;
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setBool(d->open, OpenKey);
    defaults->setObject(NSStringFromRect(QKPanelFrame::frameOf(d->panel.get())), FrameKey);
    QVariantList actions;
    for (const QVariantMap &action : d->model->actions())
        actions << action;
    defaults->setObject(actions, ActionsKey);
    defaults->synchronize();
}

void QKScrollWheelManager::tableViewSelectionDidChange()
{
    if (!d->panel)
        return;
    d->ui.removeActionButton->setEnabled(d->ui.table->selectionModel()->hasSelection());
}

void QKScrollWheelManager::openPopUps()
{
    if (!d->panel)
        return;
    for (int row = 0; row < d->model->rowCount(); ++row) {
        d->ui.table->openPersistentEditor(
            d->model->index(row, QKScrollWheelActionsModel::AxisColumn));
        d->ui.table->openPersistentEditor(
            d->model->index(row, QKScrollWheelActionsModel::ActionColumn));
    }
}

bool QKScrollWheelManager::eventFilter(QObject *watched, QEvent *event)
{
    if (d->panel && watched == d->panel.get()) {
        if (event->type() == QEvent::Show)
            d->open = true;
        else if (event->type() == QEvent::Hide && !d->quitWatcher->isQuitting())
            d->open = false;
    }
    return false;
}

QList<QVariantMap> QKScrollWheelManager::actions() const
{
    return d->model->actions();
}

QList<QVariantMap> QKScrollWheelManager::offeredActions() const
{
    return d->model->offeredActions();
}

QWidget *QKScrollWheelManager::panel() const
{
    return d->panel.get();
}

QTableView *QKScrollWheelManager::table() const
{
    return d->panel ? d->ui.table : nullptr;
}

QPushButton *QKScrollWheelManager::addActionButton() const
{
    return d->panel ? d->ui.addActionButton : nullptr;
}

QPushButton *QKScrollWheelManager::removeActionButton() const
{
    return d->panel ? d->ui.removeActionButton : nullptr;
}

QKScrollWheelActionsModel *QKScrollWheelManager::model() const
{
    return d->model;
}

QKBundle *QKScrollWheelManager::bundle() const
{
    return d->bundle ? d->bundle : QKBundle::mainBundle();
}

void QKScrollWheelManager::setBundle(QKBundle *bundle)
{
    d->bundle = bundle;
}
