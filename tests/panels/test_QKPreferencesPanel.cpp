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

#include <gtest/gtest.h>

#include <algorithm>

namespace {

QStringList g_log;

// Logs its front notifications; its text field's edits are stored under its identifier
// when the field commits them.
class TestPane : public QKPreferencesPane
{
public:
    TestPane(const QString &identifier, const QSize &size, QWidget *parent)
        : QKPreferencesPane(parent), m_identifier(identifier)
    {
        resize(size);
        setToolTip(identifier + u" settings"_s);
        connect(field, &QLineEdit::editingFinished, this, [this] { itemChanged(field); });
    }

    QString identifier() const override { return m_identifier; }
    QString title() const override { return m_identifier.toUpper(); }
    QString tooltip() const override { return u"never shown"_s; }
    void paneWillBecomeFront() override { g_log << m_identifier + u":willBecome"_s; }
    void paneDidBecomeFront() override { g_log << m_identifier + u":didBecome"_s; }
    void paneWillResignFront() override { g_log << m_identifier + u":willResign"_s; }
    void paneDidResignFront() override { g_log << m_identifier + u":didResign"_s; }
    void updateControls() override { ++updates; }
    void itemChanged(QObject *) override { defaults()->setObject(field->text(), m_identifier); }

    int updates = 0;
    QLineEdit *field = new QLineEdit(this);

private:
    QString m_identifier;
};

class TestPanel : public QKPreferencesPanel
{
public:
    QString panelNibName() const override { return u"TestPreferences"_s; }
    QList<QKPreferencesPane *> panes() const override { return m_panes; }
    int animationResizeTime(const QRect &frame) const override
    {
        return animated ? QKPreferencesPanel::animationResizeTime(frame) : 0;
    }

    TestPane *pane(int index) const { return static_cast<TestPane *>(m_panes.at(index)); }
    QAction *item(const QString &identifier) const
    {
        const QList<QAction *> items = preferencesToolbar()->actions();
        const auto found = std::ranges::find(items, identifier, &QAction::objectName);
        return found == items.end() ? nullptr : *found;
    }

    bool animated = false;

protected:
    void loadPanelNib(QWidget *panel) override
    {
        m_panes = {new TestPane(u"general"_s, QSize(420, 160), panel),
                   new TestPane(u"audio"_s, QSize(480, 300), panel),
                   new TestPane(u"name"_s, QSize(300, 80), panel)};
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

// How far the panel's centre lies from the screen's.
int offCentre()
{
    const QPoint screen = QGuiApplication::primaryScreen()->availableGeometry().center();
    return (testPanel()->panel()->geometry().center() - screen).manhattanLength();
}

int toolbarHeight()
{
    return testPanel()->preferencesToolbar()->sizeHint().height();
}

const QStringList switchToAudio{"general:willResign", "audio:willBecome", "general:didResign",
                                "audio:didBecome"};

} // namespace

TEST(QKPreferencesPanel, firstOpenShowsTheFirstPaneCentredUnderTheToolbar)
{
    // The first caller's class decides the shared instance's.
    TestPanel *panel = testPanel();
    EXPECT_EQ(QKPreferencesPanel::sharedInstance(), panel);
    EXPECT_EQ(QKPreferencesPanel::sharedInstance<OtherPanel>(), nullptr);
    QKPreferencesPanel::update(); // before loading: nothing to reach, nothing breaks
    QKPreferencesPanel::open();

    ASSERT_NE(panel->panel(), nullptr);
    EXPECT_TRUE(panel->panel()->isVisible());
    EXPECT_EQ(panel->currentPane(), panel->pane(0));
    EXPECT_EQ(g_log, QStringList({"general:willBecome", "general:didBecome"}));
    EXPECT_EQ(panel->toolbarItemIdentifiers(), QStringList({"general", "audio", "name"}));
    EXPECT_EQ(panel->panel()->size(), QSize(420, 160 + toolbarHeight()));
    EXPECT_LE(offCentre(), 2);
    // Every pane is brought up to date at load, and by every update(), shown or not.
    QKPreferencesPanel::update();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(panel->pane(i)->updates, 2) << i;

    QAction *audio = panel->item(u"audio"_s);
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->text(), u"AUDIO"_s);
    EXPECT_TRUE(panel->item(u"general"_s)->isChecked());
    // The item's tip is the pane widget's own tool tip, never the pane's tooltip().
    EXPECT_EQ(audio->toolTip(), u"audio settings"_s);
    panel->pane(1)->setToolTip(QString());
    std::unique_ptr<QAction> fresh(panel->toolbar(panel->preferencesToolbar(), u"audio"_s, false));
    EXPECT_NE(fresh->toolTip(), u"never shown"_s);
}

TEST(QKPreferencesPanel, switchingPanesNotifiesInOrderAndKeepsTheTopEdge)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::open();
    panel->panel()->move(100, 150);
    const QPoint topLeft = panel->panel()->geometry().topLeft();
    g_log.clear();

    panel->item(u"audio"_s)->trigger();
    EXPECT_EQ(g_log, switchToAudio);
    EXPECT_EQ(panel->currentPane(), panel->pane(1));
    EXPECT_EQ(panel->panel()->geometry(), QRect(topLeft, QSize(480, 300 + toolbarHeight())));
    ASSERT_NE(panel->pane(1)->parentWidget(), nullptr);
    EXPECT_EQ(panel->pane(1)->parentWidget()->findChildren<QWidget *>(Qt::FindDirectChildrenOnly),
              QList<QWidget *>({panel->pane(1)}));
    EXPECT_FALSE(panel->pane(0)->isVisible());

    // The pane already shown: no notifications, no change.
    g_log.clear();
    panel->item(u"audio"_s)->trigger();
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
    const QPoint topLeft = panel->panel()->geometry().topLeft();
    const QSize target(480, 300 + toolbarHeight());

    panel->item(u"audio"_s)->trigger();
    EXPECT_NE(panel->panel()->size(), target); // still on its way
    QList<QRect> frames;
    EXPECT_TRUE(QTest::qWaitFor([&] {
        frames << panel->panel()->geometry();
        return frames.last().size() == target;
    }));
    for (const QRect &frame : frames)
        EXPECT_EQ(frame.topLeft(), topLeft);
    EXPECT_GT(frames.size(), 2);
}

TEST(QKPreferencesPanel, openPaneRecentresOpenKeepsThePlaceAndUnknownPanesLeaveNone)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::openPane(u"missing"_s);
    EXPECT_TRUE(panel->panel()->isVisible());
    EXPECT_EQ(panel->currentPane(), nullptr);
    EXPECT_TRUE(g_log.isEmpty());

    QKPreferencesPanel::openPane(u"general"_s);
    panel->panel()->move(10, 20);
    const QPoint moved = panel->panel()->pos();
    g_log.clear();
    QKPreferencesPanel::open();
    EXPECT_EQ(panel->panel()->pos(), moved);
    EXPECT_EQ(panel->currentPane(), panel->pane(0));
    EXPECT_TRUE(g_log.isEmpty());
    for (int time = 0; time < 2; ++time) {
        panel->panel()->move(10, 20);
        QKPreferencesPanel::openPane(u"audio"_s);
        EXPECT_EQ(panel->currentPane(), panel->pane(1));
        EXPECT_TRUE(panel->item(u"audio"_s)->isChecked());
        EXPECT_LE(offCentre(), 2) << time;
    }
    EXPECT_EQ(g_log, switchToAudio);

    g_log.clear();
    QKPreferencesPanel::openPane(u"missing"_s);
    EXPECT_EQ(panel->currentPane(), nullptr);
    EXPECT_EQ(g_log, QStringList({"audio:willResign", "audio:didResign"}));
    EXPECT_EQ(panel->panel()->height(), toolbarHeight());
    EXPECT_FALSE(panel->pane(1)->isVisible());
}

TEST(QKPreferencesPanel, closingThePanelCommitsTheFieldBeingEdited)
{
    TestPanel *panel = testPanel();
    QKPreferencesPanel::openPane(u"name"_s);
    ASSERT_TRUE(QTest::qWaitForWindowActive(panel->panel()));
    QLineEdit *field = panel->pane(2)->field;
    field->setFocus();
    ASSERT_TRUE(field->hasFocus());
    QTest::keyClicks(field, u"Ada"_s);
    EXPECT_FALSE(QKUserDefaults::standardUserDefaults()->hasKey(u"name"_s));
    panel->panel()->close();
    EXPECT_FALSE(panel->panel()->isVisible());
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->stringForKey(u"name"_s), u"Ada"_s);
}
