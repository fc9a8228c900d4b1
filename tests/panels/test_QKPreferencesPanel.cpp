#include "PanelTestSupport.h"

#include <QKPreferencesPane.h>
#include <QKPreferencesPanel.h>
#include <QKUserDefaults.h>

#include <QAction>
#include <QGuiApplication>
#include <QLineEdit>
#include <QScreen>
#include <QTest>
#include <QToolBar>
#include <QVBoxLayout>

#include <gtest/gtest.h>

namespace {

QStringList g_log;

class TestPane : public QKPreferencesPane
{
public:
    TestPane(const QString &identifier, const QSize &size, QWidget *parent)
        : QKPreferencesPane(parent), m_identifier(identifier)
    {
        resize(size);
        setToolTip(identifier + QStringLiteral(" settings"));
    }

    QString identifier() const override { return m_identifier; }
    QString title() const override { return m_identifier.toUpper(); }
    QString tooltip() const override { return QStringLiteral("never shown"); }
    void paneWillBecomeFront() override { g_log << m_identifier + QStringLiteral(":willBecome"); }
    void paneDidBecomeFront() override { g_log << m_identifier + QStringLiteral(":didBecome"); }
    void paneWillResignFront() override { g_log << m_identifier + QStringLiteral(":willResign"); }
    void paneDidResignFront() override { g_log << m_identifier + QStringLiteral(":didResign"); }
    void updateControls() override { ++updates; }

    int updates = 0;

private:
    QString m_identifier;
};

// A pane with a text field whose edits are stored when it commits them.
class NamePane : public TestPane
{
public:
    explicit NamePane(QWidget *parent) : TestPane(QStringLiteral("name"), QSize(300, 80), parent)
    {
        field = new QLineEdit(this);
        field->setGeometry(10, 10, 200, 24);
        connect(field, &QLineEdit::editingFinished, this, [this] { itemChanged(field); });
    }
    void itemChanged(QObject *) override
    {
        defaults()->setObject(field->text(), QStringLiteral("Test Name"));
    }
    QLineEdit *field;
};

class TestPanel : public QKPreferencesPanel
{
public:
    QString panelNibName() const override { return QStringLiteral("TestPreferences"); }
    QList<QKPreferencesPane *> panes() const override { return m_panes; }
    int animationResizeTime(const QRect &frame) const override
    {
        return animated ? QKPreferencesPanel::animationResizeTime(frame) : 0;
    }

    TestPane *pane(int index) const { return static_cast<TestPane *>(m_panes.at(index)); }
    QAction *item(const QString &identifier) const
    {
        for (QAction *action : preferencesToolbar()->actions()) {
            if (action->objectName() == identifier)
                return action;
        }
        return nullptr;
    }

    bool animated = false;

protected:
    void loadPanelNib(QWidget *panel) override
    {
        m_panes = {new TestPane(QStringLiteral("general"), QSize(420, 160), panel),
                   new TestPane(QStringLiteral("audio"), QSize(480, 300), panel),
                   new NamePane(panel)};
    }

private:
    QList<QKPreferencesPane *> m_panes;
};

class OtherPanel : public QKPreferencesPanel
{
};

TestPanel *testPanel()
{
    return QKPreferencesPanel::sharedInstance<TestPanel>();
}

QPoint screenCentre()
{
    return QGuiApplication::primaryScreen()->availableGeometry().center();
}

int toolbarHeight()
{
    return testPanel()->preferencesToolbar()->sizeHint().height();
}

} // namespace

TEST(QKPreferencesPanel, sharedInstanceTakesTheClassOfTheFirstCaller)
{
    TestPanel *panel = testPanel();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(QKPreferencesPanel::sharedInstance(), panel);
    EXPECT_EQ(testPanel(), panel);
    EXPECT_EQ(QKPreferencesPanel::sharedInstance<OtherPanel>(), nullptr);
    EXPECT_EQ(panel->panel(), nullptr);
    EXPECT_EQ(panel->currentPane(), nullptr);
}

TEST(QKPreferencesPanel, firstOpenShowsTheFirstPaneCentredUnderTheToolbar)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::update(); // before loading: nothing to reach, nothing breaks
    QKPreferencesPanel::open();

    ASSERT_NE(panel->panel(), nullptr);
    EXPECT_TRUE(panel->panel()->isVisible());
    EXPECT_EQ(panel->currentPane(), panel->pane(0));
    EXPECT_EQ(g_log, QStringList({"general:willBecome", "general:didBecome"}));
    EXPECT_EQ(panel->toolbarItemIdentifiers(), QStringList({"general", "audio", "name"}));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(panel->pane(i)->updates, 1);

    const QRect frame = panel->panel()->geometry();
    EXPECT_EQ(frame.size(), QSize(420, 160 + toolbarHeight()));
    EXPECT_LE((frame.center() - screenCentre()).manhattanLength(), 2);

    QToolBar *toolbar = panel->preferencesToolbar();
    EXPECT_EQ(toolbar->objectName(), QStringLiteral("preferencesToolbar"));
    EXPECT_EQ(toolbar->toolButtonStyle(), Qt::ToolButtonTextUnderIcon);
    EXPECT_FALSE(toolbar->isMovable());
    QAction *audio = panel->item(QStringLiteral("audio"));
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->text(), QStringLiteral("AUDIO"));
    EXPECT_TRUE(panel->item(QStringLiteral("general"))->isChecked());
    // The item's tip is the pane widget's own tool tip, never the pane's tooltip().
    EXPECT_EQ(audio->toolTip(), QStringLiteral("audio settings"));
    panel->pane(1)->setToolTip(QString());
    std::unique_ptr<QAction> fresh(panel->toolbar(toolbar, QStringLiteral("audio"), false));
    EXPECT_EQ(fresh->toolTip(), QStringLiteral("AUDIO")); // Qt falls back on the label
}

TEST(QKPreferencesPanel, switchingPanesNotifiesInOrderAndKeepsTheTopEdge)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::open();
    panel->panel()->move(100, 150);
    const QPoint topLeft = panel->panel()->geometry().topLeft();
    g_log.clear();

    panel->item(QStringLiteral("audio"))->trigger();
    EXPECT_EQ(g_log, QStringList({"general:willResign", "audio:willBecome", "general:didResign",
                                  "audio:didBecome"}));
    EXPECT_EQ(panel->currentPane(), panel->pane(1));
    EXPECT_EQ(panel->panel()->geometry(), QRect(topLeft, QSize(480, 300 + toolbarHeight())));
    const QWidget *content = panel->pane(1)->parentWidget();
    ASSERT_NE(content, nullptr);
    EXPECT_EQ(content->findChildren<QWidget *>(Qt::FindDirectChildrenOnly),
              QList<QWidget *>({panel->pane(1)}));
    EXPECT_FALSE(panel->pane(0)->isVisible());

    // The pane already shown: no notifications, no change.
    g_log.clear();
    panel->item(QStringLiteral("audio"))->trigger();
    EXPECT_TRUE(g_log.isEmpty());
    EXPECT_EQ(panel->currentPane(), panel->pane(1));
}

TEST(QKPreferencesPanel, animatedResizeNeverMovesTheTopEdge)
{
    TestPanel *panel = testPanel();
    panel->animated = true;
    QKPreferencesPanel::open();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(panel->panel()));
    panel->panel()->move(60, 80);
    const QRect before = panel->panel()->geometry();
    const QSize target(480, 300 + toolbarHeight());

    panel->item(QStringLiteral("audio"))->trigger();
    EXPECT_EQ(panel->currentPane(), panel->pane(1));
    EXPECT_NE(panel->panel()->size(), target); // still on its way
    QList<QRect> frames;
    EXPECT_TRUE(QTest::qWaitFor([&] {
        frames << panel->panel()->geometry();
        return frames.last().size() == target;
    }));
    for (const QRect &frame : frames)
        EXPECT_EQ(frame.topLeft(), before.topLeft());
    EXPECT_GT(frames.size(), 2);
}

TEST(QKPreferencesPanel, openPaneRecentresWhileOpenKeepsThePlace)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::open();
    panel->panel()->move(10, 20);
    const QPoint moved = panel->panel()->pos();
    g_log.clear();

    QKPreferencesPanel::open();
    EXPECT_EQ(panel->panel()->pos(), moved);
    EXPECT_EQ(panel->currentPane(), panel->pane(0));
    EXPECT_TRUE(g_log.isEmpty());

    QKPreferencesPanel::openPane(QStringLiteral("audio"));
    EXPECT_EQ(panel->currentPane(), panel->pane(1));
    EXPECT_TRUE(panel->item(QStringLiteral("audio"))->isChecked());
    EXPECT_LE((panel->panel()->geometry().center() - screenCentre()).manhattanLength(), 2);

    panel->panel()->move(10, 20);
    QKPreferencesPanel::openPane(QStringLiteral("audio"));
    EXPECT_LE((panel->panel()->geometry().center() - screenCentre()).manhattanLength(), 2);
    EXPECT_EQ(g_log, QStringList({"general:willResign", "audio:willBecome", "general:didResign",
                                  "audio:didBecome"}));
}

TEST(QKPreferencesPanel, unknownPaneLeavesThePanelWithoutAPane)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::openPane(QStringLiteral("missing"));
    EXPECT_TRUE(panel->panel()->isVisible());
    EXPECT_EQ(panel->currentPane(), nullptr);
    EXPECT_TRUE(g_log.isEmpty());

    QKPreferencesPanel::openPane(QStringLiteral("general"));
    g_log.clear();
    QKPreferencesPanel::openPane(QStringLiteral("missing"));
    EXPECT_EQ(panel->currentPane(), nullptr);
    EXPECT_EQ(g_log, QStringList({"general:willResign", "general:didResign"}));
    EXPECT_EQ(panel->panel()->height(), toolbarHeight());
    EXPECT_FALSE(panel->pane(0)->isVisible());
}

TEST(QKPreferencesPanel, updateReachesEveryPaneShownOrNot)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::openPane(QStringLiteral("audio"));
    QKPreferencesPanel::update();
    QKPreferencesPanel::update();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(panel->pane(i)->updates, 3) << i;
}

TEST(QKPreferencesPanel, closingThePanelCommitsTheFieldBeingEdited)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::openPane(QStringLiteral("name"));
    ASSERT_TRUE(QTest::qWaitForWindowActive(panel->panel()));
    auto *pane = static_cast<NamePane *>(panel->currentPane());
    pane->field->setFocus();
    ASSERT_TRUE(pane->field->hasFocus());
    QTest::keyClicks(pane->field, QStringLiteral("Ada"));
    EXPECT_FALSE(QKUserDefaults::standardUserDefaults()->hasKey(QStringLiteral("Test Name")));

    panel->panel()->close();
    EXPECT_FALSE(panel->panel()->isVisible());
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->stringForKey(QStringLiteral("Test Name")),
              QStringLiteral("Ada"));
}
