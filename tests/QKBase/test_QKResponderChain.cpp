#include "QKApplication.h"
#include "QKMenus.h"
#include "QKResponderChain.h"
#include "QKTestSupport.h"

#include <QAction>
#include <QApplication>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>

namespace {

class Responder : public QWidget
{
    Q_OBJECT
public:
    using QWidget::QWidget;
    QStringList calls;
    QObject *lastSender = nullptr;
    bool allowSave = true;

    Q_INVOKABLE void saveDocument(QObject *sender)
    {
        calls << u"saveDocument"_s;
        lastSender = sender;
    }
    Q_INVOKABLE void zoom(double factor) { calls << u"zoom %1"_s.arg(factor); }
    Q_INVOKABLE void refresh() { calls << u"refresh"_s; }
    Q_INVOKABLE bool validateMenuItem(QAction *item)
    {
        return item->property(QKMenus::ActionProperty).toByteArray() != "saveDocument:" ||
               allowSave;
    }
};

class Delegate : public QKApplicationDelegate
{
    Q_OBJECT
public:
    int preferencesShown = 0;
    Q_INVOKABLE void showPreferences(QObject *) { ++preferencesShown; }
};

// A window whose focus sits in a line edit nested inside a responder.
struct Window
{
    QMainWindow main;
    Responder *outer = new Responder;
    Responder *inner = new Responder(outer);
    QLineEdit *field = new QLineEdit(inner);

    Window()
    {
        main.setCentralWidget(outer);
        main.show();
        QApplication::setActiveWindow(&main);
        field->setFocus();
        QCoreApplication::processEvents();
    }
};

} // namespace

TEST(QKResponderChain, actionsGoToTheFirstResponderFromTheFocusUpThatHandlesThem)
{
    Window window;
    const QList<QObject *> chain = QKResponderChain::responders();
    ASSERT_GE(chain.size(), 6);
    EXPECT_EQ(chain.mid(0, 4),
              QList<QObject *>({window.field, window.inner, window.outer, &window.main}));
    EXPECT_EQ(chain.at(chain.size() - 2), qApp);
    EXPECT_EQ(chain.last(), QKApplication::sharedApplication()->delegate());

    QObject sender;
    EXPECT_EQ(QKResponderChain::targetForAction("saveDocument:"), window.inner);
    EXPECT_TRUE(QKResponderChain::sendAction("saveDocument:", nullptr, &sender));
    EXPECT_TRUE(QKResponderChain::sendAction("zoom:", nullptr, nullptr, 1.5));
    EXPECT_EQ(window.inner->calls, QStringList({u"saveDocument"_s, u"zoom 1.5"_s}));
    EXPECT_EQ(window.inner->lastSender, &sender);
    // An explicit target bypasses the chain.
    EXPECT_TRUE(QKResponderChain::sendAction("refresh", window.outer, &sender));
    EXPECT_EQ(window.outer->calls, QStringList{u"refresh"_s});

    EXPECT_EQ(QKResponderChain::targetForAction("noSuchAction:"), nullptr);
    EXPECT_FALSE(QKResponderChain::sendAction("noSuchAction:", nullptr, nullptr));
    EXPECT_FALSE(QKResponderChain::sendAction("saveDocument:", new QObject(&window.main), nullptr));
}

TEST(QKResponderChain, windowActionsPassTheWidgetsInsideToReachTheWindow)
{
    Window window;
    // The widgets' own methods still answer from the focus up; QWidget's go to the window.
    const std::pair<QByteArray, QObject *> targets[] = {
        {"selectAll", window.field},     {"undo", window.field},  {"refresh", window.inner},
        {"showMinimized", &window.main}, {"close", &window.main}, {"raise", &window.main},
        {"showFullScreen", &window.main}};
    for (const auto &[action, target] : targets)
        EXPECT_EQ(QKResponderChain::targetForAction(action), target) << action.constData();

    ASSERT_TRUE(QKResponderChain::sendAction("showMinimized", nullptr, nullptr));
    QCoreApplication::processEvents();
    EXPECT_TRUE(window.main.isMinimized());
    EXPECT_FALSE(window.field->isMinimized());
}

TEST(QKResponderChain, delegateEndsTheChainAndValidationAsksTheTarget)
{
    Window window;
    {
        Delegate delegate;
        QKApplication::sharedApplication()->setDelegate(&delegate);
        EXPECT_TRUE(QKResponderChain::sendAction("showPreferences:", nullptr, nullptr));
        EXPECT_EQ(delegate.preferencesShown, 1);
    }
    // A destroyed delegate is not called.
    EXPECT_FALSE(QKResponderChain::sendAction("showPreferences:", nullptr, nullptr));

    QAction save;
    save.setProperty(QKMenus::ActionProperty, QByteArray("saveDocument:"));
    bool answered = false;
    EXPECT_TRUE(QKResponderChain::validateMenuItem(window.inner, &save, &answered));
    EXPECT_TRUE(answered);
    window.inner->allowSave = false;
    EXPECT_FALSE(QKResponderChain::validateMenuItem(window.inner, &save, &answered));
    QObject plain;
    EXPECT_TRUE(QKResponderChain::validateMenuItem(&plain, &save, &answered));
    EXPECT_FALSE(answered);
}

TEST(QKMenus, itemsSendTheirActionAlongTheChainAndSortedOnesKeepTitleOrder)
{
    Window window;
    QMenu menu;
    QAction *item = QKMenus::addItemWithTitle(&menu, u"&Save"_s, "saveDocument:", u"S"_s);
    item->trigger();
    EXPECT_EQ(window.inner->calls, QStringList{u"saveDocument"_s});
    EXPECT_EQ(window.inner->lastSender, item);
    // The key is shown but never bound where Qt would fire it behind the registry.
    EXPECT_EQ(item->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_S));
    EXPECT_EQ(item->shortcutContext(), Qt::WidgetShortcut);
    EXPECT_EQ(QKMenus::itemWithTitle(&menu, u"Save"_s), item);

    QMenu sorted;
    for (const char *title : {"Reverb", "chorus", "Delay", "&Compressor", "Amp", "zither"})
        QKMenus::addItemSortedWithTitle(&sorted, QString::fromLatin1(title), "choose:");
    QStringList titles;
    for (QAction *action : sorted.actions())
        titles << QKMenus::plainTitle(action->text());
    EXPECT_EQ(titles, QStringList({"Amp", "chorus", "Compressor", "Delay", "Reverb", "zither"}));
    EXPECT_EQ(QKMenus::plainTitle(u"Rock && &Roll"_s), u"Rock & Roll"_s);
}

#include "test_QKResponderChain.moc"
