#pragma once

#include "QKUtilitiesGlobal.h"

#include <QPointer>
#include <QRectF>
#include <QWidget>

class QKHelpDesk;

/**
 * A pane of the help desk window. The help desk builds its toolbar from the panes'
 * identifiers and titles, sizes its window from the pane's frame, keeps the window within
 * the pane's resize rules and tells every pane when the casts have arrived.
 *
 * A resizable pane remembers its frame in the user defaults under "Help Desk View Frame
 * <title>" and gets it back when its interface is loaded; the help desk then shows it at
 * that size. A non-resizable pane always keeps the size of its interface file.
 */
class QKUTILITIES_EXPORT QKHelpDeskView : public QWidget
{
    Q_OBJECT
public:
    explicit QKHelpDeskView(QWidget *parent = nullptr);
    ~QKHelpDeskView() override;

    /** The toolbar item identifier; empty in the base class. */
    virtual QString identifier() const;
    /** The toolbar label, also matched by QKHelpDesk::openWindow(); empty in the base class. */
    virtual QString title() const;
    /** Whether the user may resize the window while this pane shows; false by default. */
    virtual bool isResizable() const;
    /** The least content height of the window while this pane shows; 100 by default. */
    virtual double minimumHeight() const;

    /** Called once the interface is loaded: restores the saved frame of a resizable pane.
     *  Subclasses call the base class first. */
    virtual void awakeFromNib();
    /** Called when the user has finished resizing the window: saves the frame of a
     *  resizable pane. */
    virtual void viewDidEndLiveResize();
    /** Called on the main thread once the help desk has fetched its casts; may never come
     *  when there is no network. Does nothing by default. */
    virtual void castsDidLoad();

    /** The pane's frame: its geometry in the window, the size the help desk shows it at. */
    QRectF frame() const;
    /** The user defaults key of the saved frame: "Help Desk View Frame <title>". */
    QString frameDefaultsKey() const;

    /** The owning help desk; null until set. */
    QKHelpDesk *helpDesk() const;
    void setHelpDesk(QKHelpDesk *helpDesk);

private:
    QPointer<QKHelpDesk> m_helpDesk;
};
