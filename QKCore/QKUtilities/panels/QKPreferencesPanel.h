#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QStringList>

#include <memory>
#include <type_traits>

class QAction;
class QKPreferencesPane;
class QRect;
class QToolBar;
class QWidget;

/**
 * The base of an application's preferences window: a panel with an icon-and-label toolbar
 * whose items switch between preference panes, with an animated resize that keeps the
 * panel's top edge in place.
 *
 * A host subclasses it, gives the subclass a default constructor that QKPreferencesPanel
 * can reach (public, or befriend QKPreferencesPanel), lists its panes in panes() and creates
 * them, from code or from its own Designer forms, in loadPanelNib(); then it makes the
 * shared instance with sharedInstance<Subclass>() before the first open(). The panel window,
 * its toolbar and the content view that shows the current pane belong to this class. From
 * the first opening on, the panel owns the panes.
 */
class QKUTILITIES_EXPORT QKPreferencesPanel : public QObject
{
    Q_OBJECT
public:
    /** The shared panel; a plain QKPreferencesPanel (with no panes) when the host has not
     *  made its own yet. */
    static QKPreferencesPanel *sharedInstance();
    /** The shared panel, created as a @p Panel on first use. Null when a panel of another
     *  class was made first. */
    template<class Panel> static Panel *sharedInstance()
    {
        static_assert(std::is_base_of_v<QKPreferencesPanel, Panel>);
        return dynamic_cast<Panel *>(sharedInstance(&createInstance<Panel>));
    }
    /** Opens the shared panel: on its first pane, centred, the first time; later on the
     *  pane and at the place it was left. */
    static void open();
    /** Opens the shared panel on the pane @p identifier and centres it. An unknown
     *  identifier leaves the panel without a pane. */
    static void openPane(const QString &identifier);
    /** Sends updateControls() to every pane of the shared panel. */
    static void update();

    ~QKPreferencesPanel() override;

    /** The panel window; null until the first opening. */
    QWidget *panel() const;
    /** The pane shown; null before the first switch and after switching to an unknown one. */
    QKPreferencesPane *currentPane() const;
    /** The panes' identifiers in toolbar order; empty until the first opening. */
    QStringList toolbarItemIdentifiers() const;
    /** The panel's toolbar ("preferencesToolbar"); null until the first opening. */
    QToolBar *preferencesToolbar() const;

    /** Name of the interface file that holds the panel's panes; null in the base. */
    virtual QString panelNibName() const;
    /** The panes in toolbar order; empty in the base. */
    virtual QList<QKPreferencesPane *> panes() const;

    /** The first pane of panes() whose identifier is @p identifier; null when none. */
    QKPreferencesPane *paneForIdentifier(const QString &identifier) const;

    /** A toolbar item for @p itemIdentifier: labelled with the pane's title, its tool tip
     *  the pane widget's toolTip() (not the pane's tooltip()), its icon the pane's image,
     *  choosing it calls changePane(). An item to be inserted belongs to @p toolbar; any
     *  other belongs to the caller. */
    virtual QAction *toolbar(QToolBar *toolbar, const QString &itemIdentifier,
                             bool willBeInsertedIntoToolbar);
    QStringList toolbarDefaultItemIdentifiers(QToolBar *toolbar) const;
    QStringList toolbarAllowedItemIdentifiers(QToolBar *toolbar) const;
    QStringList toolbarSelectableItemIdentifiers(QToolBar *toolbar) const;

    /** Shows the pane of the toolbar item @p item. The current pane hears
     *  paneWillResignFront(), the new one paneWillBecomeFront(); the panel is resized to
     *  fit the new pane, animated and keeping its top edge while visible; then the old
     *  pane hears paneDidResignFront() and the new one paneDidBecomeFront(). Nothing
     *  happens when the pane is already shown. */
    Q_INVOKABLE void changePane(QAction *item);

    /** The panel is closing: takes the focus into the panel itself, so that a field being
     *  edited commits its value. */
    virtual void windowWillClose();

    /** How long, in milliseconds, the resize to @p newFrame takes: 200 ms for every 150
     *  pixels the larger side changes. Zero resizes at once. */
    virtual int animationResizeTime(const QRect &newFrame) const;

protected:
    explicit QKPreferencesPanel(QObject *parent = nullptr);

    /** Loads the interface file panelNibName() for the panel window @p panel, made empty
     *  with its toolbar and content view: a subclass creates its panes here. Nothing in
     *  the base. Called once, at the first opening. */
    virtual void loadPanelNib(QWidget *panel);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    using Factory = QKPreferencesPanel *(*)();
    static QKPreferencesPanel *sharedInstance(Factory factory);
    template<class Panel> static QKPreferencesPanel *createInstance() { return new Panel; }

    void _openPane(const QString &identifier);
    void _update();
    void loadPanel();
    void showPane(const QString &identifier);
    QRect frameForPane(const QKPreferencesPane *pane) const;
    void setPanelFrame(const QRect &frame);
    void centrePanel();

    struct Private;
    std::unique_ptr<Private> d;
};
