#include "QKPreferencesPanel.h"

#include "QKPreferencesPane.h"

#include <QAction>
#include <QActionGroup>
#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QPointer>
#include <QPropertyAnimation>
#include <QScreen>
#include <QToolBar>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdlib>

namespace {

QPointer<QKPreferencesPanel> s_sharedInstance;

// Widgets must be gone before the application object dismantles its widget state, and
// post routines run first thing in its destructor.
void destroySharedInstance()
{
    delete s_sharedInstance.data();
}

} // namespace

struct QKPreferencesPanel::Private
{
    // Declared before the animation, so that the animation goes first.
    std::unique_ptr<QWidget> panel;
    // Panes that are not shown wait here, so that each one always has a parent.
    std::unique_ptr<QWidget> paneShelf;
    QToolBar *toolbar = nullptr;
    QWidget *contentView = nullptr;
    QPointer<QKPreferencesPane> currentPane;
    QStringList toolbarItemIdentifiers;
    std::unique_ptr<QPropertyAnimation> resizeAnimation;
};

QKPreferencesPanel::QKPreferencesPanel(QObject *parent)
    : QObject(parent), d(std::make_unique<Private>())
{}

QKPreferencesPanel::~QKPreferencesPanel()
{
    if (d->panel)
        d->panel->removeEventFilter(this);
}

QKPreferencesPanel *QKPreferencesPanel::sharedInstance(Factory factory)
{
    if (!s_sharedInstance) {
        // The panel lives as long as the application object that owns it.
        s_sharedInstance = factory();
        s_sharedInstance->setParent(QCoreApplication::instance());
        qAddPostRoutine(destroySharedInstance);
    }
    return s_sharedInstance;
}

QKPreferencesPanel *QKPreferencesPanel::sharedInstance()
{
    return sharedInstance(&createInstance<QKPreferencesPanel>);
}

void QKPreferencesPanel::open()
{
    sharedInstance()->_openPane(QString());
}

void QKPreferencesPanel::openPane(const QString &identifier)
{
    // A null identifier means "no pane asked for"; an empty one is a pane that is not there.
    sharedInstance()->_openPane(identifier.isNull() ? QStringLiteral("") : identifier);
}

void QKPreferencesPanel::update()
{
    sharedInstance()->_update();
}

QWidget *QKPreferencesPanel::panel() const
{
    return d->panel.get();
}

QKPreferencesPane *QKPreferencesPanel::currentPane() const
{
    return d->currentPane;
}

QStringList QKPreferencesPanel::toolbarItemIdentifiers() const
{
    return d->toolbarItemIdentifiers;
}

QToolBar *QKPreferencesPanel::preferencesToolbar() const
{
    return d->toolbar;
}

QString QKPreferencesPanel::panelNibName() const
{
    return QString();
}

QList<QKPreferencesPane *> QKPreferencesPanel::panes() const
{
    return {};
}

void QKPreferencesPanel::loadPanelNib(QWidget *) {}

QKPreferencesPane *QKPreferencesPanel::paneForIdentifier(const QString &identifier) const
{
    const QList<QKPreferencesPane *> all = panes();
    for (QKPreferencesPane *pane : all) {
        if (pane && pane->identifier() == identifier)
            return pane;
    }
    return nullptr;
}

void QKPreferencesPanel::_update()
{
    const QList<QKPreferencesPane *> all = panes();
    for (QKPreferencesPane *pane : all) {
        if (pane)
            pane->updateControls();
    }
}

void QKPreferencesPanel::_openPane(const QString &identifier)
{
    if (!d->panel) {
        loadPanel();
        if (identifier.isNull()) {
            showPane(d->toolbarItemIdentifiers.value(0));
            centrePanel();
        }
    }
    if (!identifier.isNull()) {
        showPane(identifier);
        centrePanel();
    }
    d->panel->show();
    d->panel->raise();
    d->panel->activateWindow();
}

void QKPreferencesPanel::loadPanel()
{
    d->panel = std::make_unique<QWidget>();
    d->panel->setObjectName(panelNibName());
    d->panel->setWindowTitle(tr("Preferences"));
    d->panel->installEventFilter(this);
    d->paneShelf = std::make_unique<QWidget>();

    d->toolbar = new QToolBar(d->panel.get());
    d->toolbar->setObjectName(QStringLiteral("preferencesToolbar"));
    d->toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    d->toolbar->setMovable(false);
    d->toolbar->setFloatable(false);
    d->toolbar->setContextMenuPolicy(Qt::PreventContextMenu);
    d->toolbar->toggleViewAction()->setEnabled(false);

    d->contentView = new QWidget(d->panel.get());
    d->contentView->setObjectName(QStringLiteral("contentView"));
    auto *layout = new QVBoxLayout(d->panel.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    // The panel takes the size of each pane, even below what the toolbar would like.
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    layout->addWidget(d->toolbar);
    layout->addWidget(d->contentView, 1);

    loadPanelNib(d->panel.get());
    const QList<QKPreferencesPane *> all = panes();
    for (QKPreferencesPane *pane : all) {
        if (pane && pane->parentWidget() != d->contentView) {
            pane->hide();
            pane->setParent(d->paneShelf.get());
        }
    }

    d->toolbarItemIdentifiers.clear();
    for (const QKPreferencesPane *pane : all) {
        if (pane)
            d->toolbarItemIdentifiers << pane->identifier();
    }
    auto *group = new QActionGroup(d->toolbar);
    group->setExclusive(true);
    const QStringList identifiers = toolbarDefaultItemIdentifiers(d->toolbar);
    const QStringList selectable = toolbarSelectableItemIdentifiers(d->toolbar);
    for (const QString &identifier : identifiers) {
        QAction *item = toolbar(d->toolbar, identifier, true);
        item->setCheckable(selectable.contains(identifier));
        group->addAction(item);
        d->toolbar->addAction(item);
    }
    _update();
}

QAction *QKPreferencesPanel::toolbar(QToolBar *toolbar, const QString &itemIdentifier,
                                     bool willBeInsertedIntoToolbar)
{
    auto *item = new QAction(willBeInsertedIntoToolbar ? toolbar : nullptr);
    item->setObjectName(itemIdentifier);
    item->setData(itemIdentifier);
    if (const QKPreferencesPane *pane = paneForIdentifier(itemIdentifier)) {
        item->setText(pane->title());
        item->setToolTip(pane->toolTip());
        item->setIcon(pane->image());
    }
    connect(item, &QAction::triggered, this, [this, item] { changePane(item); });
    return item;
}

QStringList QKPreferencesPanel::toolbarDefaultItemIdentifiers(QToolBar *) const
{
    return d->toolbarItemIdentifiers;
}

QStringList QKPreferencesPanel::toolbarAllowedItemIdentifiers(QToolBar *) const
{
    return d->toolbarItemIdentifiers;
}

QStringList QKPreferencesPanel::toolbarSelectableItemIdentifiers(QToolBar *) const
{
    return d->toolbarItemIdentifiers;
}

void QKPreferencesPanel::showPane(const QString &identifier)
{
    const QList<QAction *> items = d->toolbar->actions();
    for (QAction *item : items) {
        if (item->data().toString() == identifier && item->isCheckable())
            item->setChecked(true);
    }
    const std::unique_ptr<QAction> item(toolbar(d->toolbar, identifier, false));
    changePane(item.get());
}

void QKPreferencesPanel::changePane(QAction *item)
{
    QKPreferencesPane *pane = item ? paneForIdentifier(item->data().toString()) : nullptr;
    if (pane == d->currentPane || !d->panel)
        return;
    QKPreferencesPane *previous = d->currentPane;
    if (previous)
        previous->paneWillResignFront();
    if (pane)
        pane->paneWillBecomeFront();

    const QList<QWidget *> subviews =
        d->contentView->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
    if (!subviews.isEmpty()) {
        subviews.first()->hide();
        subviews.first()->setParent(d->paneShelf.get());
    }
    setPanelFrame(frameForPane(pane));
    if (pane) {
        pane->resize(pane->paneSize());
        pane->setParent(d->contentView);
        pane->show();
    }

    if (previous)
        previous->paneDidResignFront();
    if (pane)
        pane->paneDidBecomeFront();
    d->currentPane = pane;
}

QRect QKPreferencesPanel::frameForPane(const QKPreferencesPane *pane) const
{
    const QSize content = pane ? pane->paneSize() : QSize(0, 0);
    const QRect current = d->panel->geometry();
    // Qt measures from the top-left corner, so keeping the origin keeps the top edge.
    return QRect(current.topLeft(),
                 QSize(content.width(), content.height() + d->toolbar->sizeHint().height()));
}

void QKPreferencesPanel::setPanelFrame(const QRect &frame)
{
    if (!d->resizeAnimation) {
        d->resizeAnimation = std::make_unique<QPropertyAnimation>(d->panel.get(), "geometry");
        d->resizeAnimation->setEasingCurve(QEasingCurve::InOutQuad);
    }
    d->resizeAnimation->stop();
    const int duration = d->panel->isVisible() ? animationResizeTime(frame) : 0;
    if (duration <= 0) {
        d->panel->setGeometry(frame);
        return;
    }
    d->resizeAnimation->setDuration(duration);
    d->resizeAnimation->setStartValue(d->panel->geometry());
    d->resizeAnimation->setEndValue(frame);
    d->resizeAnimation->start();
}

int QKPreferencesPanel::animationResizeTime(const QRect &newFrame) const
{
    if (!d->panel)
        return 0;
    const QRect current = d->panel->geometry();
    const int change = std::max(std::abs(newFrame.width() - current.width()),
                                std::abs(newFrame.height() - current.height()));
    return change * 200 / 150;
}

void QKPreferencesPanel::centrePanel()
{
    const bool animating =
        d->resizeAnimation && d->resizeAnimation->state() == QAbstractAnimation::Running;
    QRect frame = animating ? d->resizeAnimation->endValue().toRect() : d->panel->geometry();
    const QScreen *screen =
        d->panel->screen() ? d->panel->screen() : QGuiApplication::primaryScreen();
    if (!screen)
        return;
    frame.moveCenter(screen->availableGeometry().center());
    // A resize under way ends where the centred frame is, as if it had finished first.
    if (animating)
        d->resizeAnimation->setEndValue(frame);
    else
        d->panel->setGeometry(frame);
}

void QKPreferencesPanel::windowWillClose()
{
    if (d->panel)
        d->panel->setFocus(Qt::OtherFocusReason);
}

bool QKPreferencesPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (d->panel && watched == d->panel.get() && event->type() == QEvent::Close)
        windowWillClose();
    return QObject::eventFilter(watched, event);
}
