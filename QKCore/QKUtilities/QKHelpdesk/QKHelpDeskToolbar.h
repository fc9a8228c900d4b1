#pragma once

#include "QKUtilitiesGlobal.h"

#include <QLatin1String>
#include <QToolBar>

#include <memory>

class QAction;
class QMenu;
class QKHelpDeskToolbar;

/** What the toolbar asks of its delegate: the items it may show and how to make them. */
class QKUTILITIES_EXPORT QKHelpDeskToolbarDelegate
{
public:
    virtual ~QKHelpDeskToolbarDelegate();

    /** A new item for @p identifier, or null for an identifier the delegate does not know.
     *  The toolbar takes the item over when @p willBeInsertedIntoToolbar is true; otherwise
     *  the caller owns it. */
    virtual QAction *toolbarItemForItemIdentifier(QKHelpDeskToolbar *toolbar,
                                                  const QString &identifier,
                                                  bool willBeInsertedIntoToolbar) = 0;
    /** The items a new toolbar shows, in order. */
    virtual QStringList toolbarDefaultItemIdentifiers(const QKHelpDeskToolbar *toolbar) const = 0;
    /** Every item the user may put into the toolbar, in the order they are offered. */
    virtual QStringList toolbarAllowedItemIdentifiers(const QKHelpDeskToolbar *toolbar) const = 0;
    /** The items that show a selected state (one at a time). */
    virtual QStringList
    toolbarSelectableItemIdentifiers(const QKHelpDeskToolbar *toolbar) const = 0;
};

/**
 * The help desk's toolbar: items made by a delegate and named by identifiers, one of them
 * selected at a time, plus the standard separator, space, flexible space and customise
 * items. The user customises it through its context menu (add or remove allowed items);
 * with autosaving the item list is kept in the user defaults under "NSToolbar Configuration
 * <identifier>" as {"TB Item Identifiers": [...]}, and read back when the delegate is set.
 */
class QKUTILITIES_EXPORT QKHelpDeskToolbar : public QToolBar
{
    Q_OBJECT
public:
    static constexpr QLatin1String SeparatorItemIdentifier{"NSToolbarSeparatorItem"};
    static constexpr QLatin1String SpaceItemIdentifier{"NSToolbarSpaceItem"};
    static constexpr QLatin1String FlexibleSpaceItemIdentifier{"NSToolbarFlexibleSpaceItem"};
    static constexpr QLatin1String CustomizeToolbarItemIdentifier{"NSToolbarCustomizeToolbarItem"};

    explicit QKHelpDeskToolbar(const QString &identifier, QWidget *parent = nullptr);
    ~QKHelpDeskToolbar() override;

    /** The identifier of an item made for the toolbar; empty for other actions. */
    static QString itemIdentifier(const QAction *item);
    static void setItemIdentifier(QAction *item, const QString &identifier);

    QString identifier() const;
    /** The user defaults key of the saved configuration. */
    QString configurationDefaultsKey() const;

    /** Sets the delegate (not owned) and builds the items: the saved configuration when
     *  autosaving and one is stored, else the delegate's default items. */
    void setDelegate(QKHelpDeskToolbarDelegate *delegate);
    QKHelpDeskToolbarDelegate *delegate() const;

    void setAllowsUserCustomization(bool allows);
    bool allowsUserCustomization() const;
    /** Turning autosaving on reloads the saved configuration, if there is one. */
    void setAutosavesConfiguration(bool autosaves);
    bool autosavesConfiguration() const;

    /** The identifiers of the items shown, in order. */
    QStringList itemIdentifiers() const;
    /** The first item shown for @p identifier; null when none is. */
    QAction *itemWithIdentifier(const QString &identifier) const;
    /** Inserts an allowed item before position @p index (at the end when out of range);
     *  unknown or disallowed identifiers are ignored. */
    void insertItemWithItemIdentifier(const QString &identifier, int index);
    void removeItemAtIndex(int index);
    /** Replaces every item with @p identifiers (disallowed ones are skipped). */
    void setItemIdentifiers(const QStringList &identifiers);

    /** Marks the item of @p identifier as selected, also when it is not shown (it then
     *  shows selected once added). */
    void setSelectedItemIdentifier(const QString &identifier);
    QString selectedItemIdentifier() const;

    /** A new menu (owned by the caller) that customises the toolbar, for a right click on
     *  @p itemUnderCursor (null for an empty spot). */
    QMenu *createCustomizationMenu(QAction *itemUnderCursor, QWidget *parent = nullptr);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
