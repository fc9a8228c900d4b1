#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"

#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKCapsLock.h>
#include <QKPanelFrame.h>
#include <QKPropertyList.h>
#include <QKScrollWheelActionsModel.h>
#include <QKScrollWheelManager.h>
#include <QKUserDefaults.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QHeaderView>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <QWheelEvent>

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr qint64 CapsLock = 0x10000, Shift = 0x20000, Control = 0x40000, Option = 0x80000,
                 Command = 0x100000;

QVariantMap mapping(bool vertical, qint64 modifiers, const QString &action, bool reverse = false)
{
    return {{u"vertical"_s, vertical},
            {u"modifiers"_s, modifiers},
            {u"action"_s, action},
            {u"reverse"_s, reverse}};
}

QVariantMap offered(const QString &title, const QString &action)
{
    return {{u"title"_s, title}, {u"action"_s, action}};
}

QKUserDefaults *defaults()
{
    return QKUserDefaults::standardUserDefaults();
}

QKScrollWheelManager *manager()
{
    return QKScrollWheelManager::defaultManager();
}

QString logText()
{
    return QString::fromUtf8(
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()));
}

// The default mapping of the test host. The second Command row can never fire.
const QVariantList DefaultMapping = {
    mapping(true, 0, u"scrollTracks:"_s),       mapping(true, Command, u"zoomBy:"_s, true),
    mapping(true, Command, u"scrollTracks:"_s), mapping(false, 0, u"scrollSideways:"_s),
    mapping(true, CapsLock, u"zoomBy:"_s),      mapping(true, Shift, u"solo:"_s),
};

// The test host's resources in a folder under HOME, loaded as a host does at start-up.
void loadHost(const QVariantList &defaultMapping = DefaultMapping)
{
    static std::unique_ptr<QKBundle> bundle;
    const QString folder = QKTestEnvironment::homeFile(u"bundle"_s);
    QDir().mkpath(folder);
    const QVariantList actions = {offered(u"Scroll Tracks"_s, u"scrollTracks:"_s),
                                  offered(u"Zoom"_s, u"zoomBy:"_s),
                                  offered(u"Scroll Sideways"_s, u"scrollSideways:"_s)};
    QKPropertyList::writeFile(actions, folder + u"/scrollWheelActions.xml"_s);
    QKPropertyList::writeFile(defaultMapping, folder + u"/scrollWheelActionDefaults.xml"_s);
    bundle = std::make_unique<QKBundle>(QStringList{folder});
    manager()->setBundle(bundle.get());
    QKScrollWheelManager::loadActions();
}

// A view of the host: hands its wheel events to the manager and records the actions.
class TrackView : public QWidget
{
    Q_OBJECT
public:
    QStringList received;

    Q_INVOKABLE void scrollTracks(double amount) { record("scrollTracks", amount); }
    Q_INVOKABLE void zoomBy(double amount) { record("zoomBy", amount); }
    Q_INVOKABLE void scrollSideways(double amount) { record("scrollSideways", amount); }

    // Delivers a wheel event as the window system would, with Qt's angle units.
    void wheel(QPoint angleDelta, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QWheelEvent event(QPointF(5, 5), mapToGlobal(QPointF(5, 5)), QPoint(), angleDelta,
                          Qt::NoButton, modifiers, Qt::NoScrollPhase, false);
        QApplication::sendEvent(this, &event);
    }

protected:
    void wheelEvent(QWheelEvent *event) override
    {
        QKScrollWheelManager::scrollWheelEvent(event, this);
    }

private:
    void record(const char *name, double amount)
    {
        received << u"%1 %2"_s.arg(QLatin1String(name)).arg(amount);
    }
};

void setCapsLock(bool on)
{
    const QString leds = QKTestEnvironment::homeFile(u"leds"_s);
    QKTestEnvironment::writeAll(leds + u"/input3::capslock/brightness"_s, on ? "1\n" : "0\n");
    QKTestEnvironment::writeAll(leds + u"/input3::numlock/brightness"_s, "1\n");
    QKCapsLock::setLedsFolder(leds);
}

struct WheelCase
{
    QPoint angleDelta;
    Qt::KeyboardModifiers modifiers;
    bool capsLock;
    QString expected; // empty: nothing is sent
};

} // namespace

TEST(QKScrollWheelManager, dispatchesTheFirstMatchingMappingByAxisAndExactModifiers)
{
    loadHost();
    TrackView view;
    const QList<WheelCase> cases = {
        {{0, 120}, Qt::NoModifier, false, u"scrollTracks 1"_s},
        {{0, -60}, Qt::NoModifier, false, u"scrollTracks -0.5"_s},
        // Qt's Control is the Command key; the first of two Command rows wins, reversed.
        {{0, -240}, Qt::ControlModifier, false, u"zoomBy 2"_s},
        // Diagonal movement is vertical.
        {{90, 120}, Qt::NoModifier, false, u"scrollTracks 1"_s},
        {{120, 0}, Qt::NoModifier, false, u"scrollSideways 1"_s},
        // The keypad flag never takes part.
        {{0, 120}, Qt::KeypadModifier, false, u"scrollTracks 1"_s},
        // No horizontal row for Ctrl, no rows for Meta or Alt, and the host has no solo().
        {{120, 0}, Qt::ControlModifier, false, QString()},
        {{0, 120}, Qt::MetaModifier, false, QString()},
        {{0, 120}, Qt::AltModifier, false, QString()},
        {{0, 120}, Qt::ShiftModifier, false, QString()},
        // Caps Lock matches only rows that have it.
        {{0, 120}, Qt::NoModifier, true, u"zoomBy 1"_s},
        {{0, 120}, Qt::ControlModifier, true, QString()},
    };
    for (const WheelCase &wheel : cases) {
        SCOPED_TRACE(QDebug::toString(wheel.angleDelta).toStdString() + " " +
                     QDebug::toString(wheel.modifiers).toStdString());
        setCapsLock(wheel.capsLock);
        view.received.clear();
        view.wheel(wheel.angleDelta, wheel.modifiers);
        EXPECT_EQ(view.received,
                  wheel.expected.isEmpty() ? QStringList() : QStringList{wheel.expected});
    }

    // Movement that is not a number counts as vertical.
    setCapsLock(false);
    view.received.clear();
    EXPECT_TRUE(manager()->_scrollWheel(1, std::nan(""), 0, &view));
    EXPECT_TRUE(view.received.value(0).startsWith(u"scrollTracks"_s));
    EXPECT_FALSE(manager()->_scrollWheel(0, 1, Option, &view));
    EXPECT_FALSE(manager()->_scrollWheel(0, 1, 0, nullptr));
}

TEST(QKScrollWheelManager, panelAddsRemovesAndEditsMappings)
{
    loadHost({mapping(false, 0, u"scrollSideways:"_s)});
    QKScrollWheelActionsModel *model = manager()->model();
    QTableView *table = manager()->table();
    ASSERT_NE(table, nullptr);
    QStringList identifiers;
    for (int column = 0; column < model->columnCount(); ++column)
        identifiers << QKScrollWheelActionsModel::identifier(column);
    EXPECT_EQ(identifiers, QStringList({u"axis"_s, u"command"_s, u"option"_s, u"shift"_s,
                                        u"control"_s, u"caps lock"_s, u"action"_s, u"reverse"_s}));
    EXPECT_FALSE(manager()->panel()->isVisible());
    QKScrollWheelManager::togglePanel();
    EXPECT_TRUE(manager()->panel()->isVisible());

    // Add appends a plain vertical row for the first offered action.
    manager()->addActionButton()->click();
    EXPECT_EQ(manager()->actions(), QList<QVariantMap>({mapping(false, 0, u"scrollSideways:"_s),
                                                        mapping(true, 0, u"scrollTracks:"_s)}));

    // The pop-ups show the row's values and write the chosen item's.
    const auto popUp = [&](int row, int column) {
        return qobject_cast<QComboBox *>(table->indexWidget(model->index(row, column)));
    };
    QComboBox *axis = popUp(0, QKScrollWheelActionsModel::AxisColumn);
    QComboBox *action = popUp(0, QKScrollWheelActionsModel::ActionColumn);
    ASSERT_TRUE(axis && action);
    EXPECT_EQ(axis->currentText(), u"Horizontal"_s);
    EXPECT_EQ(action->currentText(), u"Scroll Sideways"_s);
    axis->setCurrentIndex(1);
    emit axis->activated(1);
    action->setCurrentIndex(1);
    emit action->activated(1);

    // Check boxes toggle their own modifier bit and "reverse", as the view's clicks do.
    const auto check = [&](int column) {
        const QModelIndex cell = model->index(0, column);
        const bool checked = cell.data(Qt::CheckStateRole).toInt() == Qt::Checked;
        model->setData(cell, checked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
    };
    for (int column :
         {QKScrollWheelActionsModel::CommandColumn, QKScrollWheelActionsModel::CapsLockColumn,
          QKScrollWheelActionsModel::OptionColumn, QKScrollWheelActionsModel::ReverseColumn})
        check(column);
    check(QKScrollWheelActionsModel::OptionColumn);
    EXPECT_EQ(manager()->actions().first(), mapping(true, Command | CapsLock, u"zoomBy:"_s, true));
    EXPECT_EQ(model->index(0, QKScrollWheelActionsModel::ShiftColumn).data(Qt::CheckStateRole),
              Qt::Unchecked);

    // Remove works on the selected row and is enabled only while there is one.
    QPushButton *remove = manager()->removeActionButton();
    EXPECT_FALSE(remove->isEnabled());
    table->selectRow(0);
    EXPECT_TRUE(remove->isEnabled());
    remove->click();
    EXPECT_EQ(manager()->actions(), QList<QVariantMap>({mapping(true, 0, u"scrollTracks:"_s)}));
    EXPECT_FALSE(remove->isEnabled());
    // The remaining row got its pop-ups back after the table reloaded.
    ASSERT_NE(popUp(0, QKScrollWheelActionsModel::ActionColumn), nullptr);
    EXPECT_EQ(popUp(0, QKScrollWheelActionsModel::ActionColumn)->currentText(), u"Scroll Tracks"_s);
    // Edits are not stored before the application quits.
    EXPECT_FALSE(defaults()->persistentDomain().contains(QKScrollWheelManager::ActionsKey));
}

TEST(QKScrollWheelManager, quittingStoresTheMappingAndTheOpenPanelForTheNextLaunch)
{
    loadHost();
    QWidget *panel = manager()->panel();
    EXPECT_EQ(QKPanelFrame::frameOf(panel), QRectF(217, 544, 411, 187));
    QKScrollWheelManager::openPanel();
    QApplication::setActiveWindow(panel);
    // Closed and opened again by the user: it counts as open.
    QKScrollWheelManager::togglePanel();
    EXPECT_FALSE(panel->isVisible());
    QKScrollWheelManager::togglePanel();
    panel->setGeometry(40, 60, 411, 300);
    manager()->addActionButton()->click();
    const QList<QVariantMap> edited = manager()->actions();
    EXPECT_FALSE(defaults()->persistentDomain().contains(QKScrollWheelManager::OpenKey));

    // Qt closes every window when the application quits.
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    EXPECT_EQ(manager()->panel(), nullptr);

    // The next launch: the defaults read back from their file.
    QKUserDefaults::resetStandardUserDefaults();
    loadHost({});
    EXPECT_EQ(manager()->actions(), edited);
    EXPECT_TRUE(manager()->panel()->isVisible());
    EXPECT_EQ(manager()->panel()->geometry(), QRect(40, 60, 411, 300));
}

TEST(QKScrollWheelManager, quittingWithThePanelClosedByTheUserKeepsItClosed)
{
    loadHost();
    QKScrollWheelManager::openPanel();
    QApplication::setActiveWindow(manager()->panel());
    QKScrollWheelManager::togglePanel();
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
    const QVariantMap stored = defaults()->persistentDomain();
    EXPECT_EQ(stored.value(QKScrollWheelManager::OpenKey), false);
    EXPECT_EQ(stored.value(QKScrollWheelManager::FrameKey), u"{{217, 544}, {411, 187}}"_s);
    EXPECT_EQ(stored.value(QKScrollWheelManager::ActionsKey), DefaultMapping);
}

TEST(QKScrollWheelManager, storedFrameKeepsItsPlaceButNotItsWidth)
{
    defaults()->setObject(u"{{10, 20}, {300, 280}}"_s, QKScrollWheelManager::FrameKey);
    loadHost();
    EXPECT_FALSE(manager()->panel()->isVisible());
    EXPECT_EQ(QKPanelFrame::frameOf(manager()->panel()), QRectF(10, 20, 411, 280));
}

// Stored mappings of the wrong shape: what is left of them, and what the log says.
class WrongShape : public ::testing::TestWithParam<std::tuple<QVariant, int, QString>>
{
};

std::string wrongShapeName(const ::testing::TestParamInfo<WrongShape::ParamType> &info)
{
    static const std::string names[] = {"aString", "aDictionary", "badEntries", "noDictionaries"};
    return names[info.index];
}

TEST_P(WrongShape, isIgnoredAndLogged)
{
    const auto &[stored, rowsKept, logged] = GetParam();
    defaults()->setObject(stored, QKScrollWheelManager::ActionsKey);
    loadHost();
    const QList<QVariantMap> actions = manager()->actions();
    if (rowsKept < 0)
        EXPECT_EQ(actions.size(), DefaultMapping.size());
    else
        EXPECT_EQ(actions, QList<QVariantMap>(rowsKept, mapping(true, Option, u"zoomBy:"_s)));
    EXPECT_TRUE(logText().contains(logged)) << logText().toStdString();
    // What is left still dispatches.
    TrackView view;
    view.wheel({0, 120}, rowsKept < 0 ? Qt::NoModifier : Qt::AltModifier);
    EXPECT_EQ(view.received.size(), rowsKept == 0 ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    QKScrollWheelManager, WrongShape,
    ::testing::Values(
        // Not an array at all: the host's defaults stand in.
        std::tuple(QVariant(u"zoomBy:"_s), -1, u"The stored mapping is not an array"_s),
        std::tuple(QVariant(QVariantMap{{u"vertical"_s, true}}), -1,
                   u"The stored mapping is not an array"_s),
        // Entries with a missing key, a value of the wrong type or no dictionary at all.
        std::tuple(QVariant(QVariantList{
                       QVariantMap{{u"vertical"_s, true}, {u"action"_s, u"zoomBy:"_s}},
                       mapping(true, Option, u"zoomBy:"_s),
                       QVariantMap{{u"vertical"_s, true},
                                   {u"modifiers"_s, u"Option"_s},
                                   {u"action"_s, u"zoomBy:"_s}},
                       u"zoomBy:"_s}),
                   1, u"Entry 3 of The stored mapping has the wrong shape"_s),
        std::tuple(QVariant(QVariantList{42}), 0,
                   u"Entry 0 of The stored mapping has the wrong shape"_s)),
    wrongShapeName);

#include "test_QKScrollWheelManager.moc"
