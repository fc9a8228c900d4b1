#pragma once

#include "QKUtilitiesGlobal.h"

#include <QIcon>
#include <QWidget>

class QKUserDefaults;

/**
 * One page of a preferences panel. A host subclasses it for each pane, builds the pane's
 * controls (in code or from its own Designer form) and overrides what it needs; the base
 * does nothing.
 *
 * The pane's frame is its size: the size given with resize() or by its form, else its size
 * hint. The panel fits its window to that frame when the pane is shown.
 */
class QKUTILITIES_EXPORT QKPreferencesPane : public QWidget
{
    Q_OBJECT
public:
    /** Creates the pane; defaults() is the standard user defaults from here on. */
    explicit QKPreferencesPane(QWidget *parent = nullptr);
    ~QKPreferencesPane() override;

    /** The user defaults the pane reads and writes its settings through. */
    QKUserDefaults *defaults() const { return m_defaults; }

    /** The pane's identifier in the toolbar; null in the base. */
    virtual QString identifier() const;
    /** The toolbar item's label; null in the base. */
    virtual QString title() const;
    /** A description of the pane; null in the base. The toolbar does not use it: its item
     *  takes the pane widget's own toolTip(). */
    virtual QString tooltip() const;
    /** The toolbar item's image; null in the base. */
    virtual QIcon image() const;

    virtual void paneWillBecomeFront();
    virtual void paneDidBecomeFront();
    virtual void paneWillResignFront();
    virtual void paneDidResignFront();
    /** Sets the controls from the settings; called when the panel loads and on every
     *  QKPreferencesPanel::update(). */
    virtual void updateControls();

    /** The usual action of the pane's controls: writes the settings. Nothing in the base. */
    Q_INVOKABLE virtual void itemChanged(QObject *sender);

    /** The frame the panel fits its window to: size() once resized, else sizeHint(). */
    QSize paneSize() const;

private:
    QKUserDefaults *m_defaults;
};
