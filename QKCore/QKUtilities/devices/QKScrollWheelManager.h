#pragma once

#include "QKUtilitiesGlobal.h"

#include <QObject>
#include <QVariantMap>

#include <memory>

class QKBundle;
class QKScrollWheelActionsModel;
class QPushButton;
class QTableView;
class QWheelEvent;
class QWidget;

/**
 * Maps scroll wheel movement, by axis and by the modifier keys held, to actions of the
 * host. A view hands its wheel events to scrollWheelEvent() with itself as the target; the
 * first mapping for the event's axis and exact modifiers sends its action to the target's
 * invokable method of that name with the scroll amount (one wheel notch is 1.0), negated
 * for a reversed mapping.
 *
 * A mapping is a dictionary: "vertical" (bool), "modifiers" (mask: 0x10000 Caps Lock,
 * 0x20000 Shift, 0x40000 Control (Meta), 0x80000 Option (Alt), 0x100000 Command (Ctrl)),
 * "action" (selector name, "zoomBy:") and "reverse" (bool). The host's resources
 * "scrollWheelActions.xml" (the offered actions, dictionaries of "title" and "action") and
 * "scrollWheelActionDefaults.xml" (the first mapping) are property-list arrays.
 *
 * The user edits the mapping in a panel. Mapping, panel frame and whether the panel was
 * open are stored in the user defaults when the application quits, and only then.
 */
class QKUTILITIES_EXPORT QKScrollWheelManager : public QObject
{
    Q_OBJECT
public:
    static const QString ActionsKey; // "Scroll Wheel Actions": the user's mapping
    static const QString OpenKey;    // "Scroll Wheel Manager Open": the panel was open
    static const QString FrameKey;   // "Scroll Wheel Manager Frame": the panel's frame

    /** The one manager, made on first use; it lives as long as the process. */
    static QKScrollWheelManager *defaultManager();
    /** Registers the panel's defaults: closed, at x 217, y 544, 411 by 187. */
    static void initialize();
    /** Loads the panel and the mapping, for the host's start-up; the library never calls it.
     *  Once loaded, later calls do nothing until the application quits. */
    static void loadActions();
    static void openPanel();
    static void togglePanel();
    /** Dispatches @p event to @p target; see _scrollWheelEvent(). */
    static void scrollWheelEvent(const QWheelEvent *event, QObject *target);

    ~QKScrollWheelManager() override;

    /** Sends the action of the first mapping for the event's axis and modifiers to
     *  @p target with the amount. The axis is vertical when the vertical delta is not
     *  zero, else horizontal. Nothing when no mapping matches or @p target has no method
     *  for the action. */
    void _scrollWheelEvent(const QWheelEvent *event, QObject *target);
    /** The same for a movement of @p deltaX and @p deltaY notches with the modifier mask
     *  @p modifiers; true when an action was sent. */
    bool _scrollWheel(double deltaX, double deltaY, quint32 modifiers, QObject *target);

    /** The Add button: appends a vertical mapping without modifiers to the first offered
     *  action. */
    void addAction(QObject *sender);
    /** The Remove button: removes the selected mapping. */
    void removeAction(QObject *sender);
    /** Shows the panel and makes it the active window. */
    void _openPanel();
    /** Closes the panel when it is visible and active; otherwise opens it. */
    void _togglePanel();
    /** Stores the panel's state and the mapping. Runs when the application quits. */
    void applicationWillTerminate();

    /** The mappings, earlier rows first; empty until loadActions(). */
    QList<QVariantMap> actions() const;
    /** The offered actions; empty until loadActions(). */
    QList<QVariantMap> offeredActions() const;

    /** The panel's widgets; null until loadActions() and after the application quit. */
    QWidget *panel() const;
    QTableView *table() const;
    QPushButton *addActionButton() const;
    QPushButton *removeActionButton() const;
    QKScrollWheelActionsModel *model() const;

    /** Where the resources come from: the host's main bundle unless set. Not owned. */
    QKBundle *bundle() const;
    void setBundle(QKBundle *bundle);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QKScrollWheelManager();
    void awakeFromNib();
    void tableViewSelectionDidChange();
    void openPopUps();
    QList<QVariantMap> storedActions() const;

    struct Private;
    std::unique_ptr<Private> d;
};
