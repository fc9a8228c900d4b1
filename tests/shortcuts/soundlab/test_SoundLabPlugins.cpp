// Sound Lab's Effects and Instruments menus: the installed LV2 and VST plug-ins, validated in
// validator processes, and an instrument chosen there becomes the selected track's.
#include "../ShortcutTestHost.h"

#include "SoundLabPlugins.h"
#include "SoundLabWindow.h"

namespace {

// The item at @p path of titles below the menu bar.
QAction *menuItem(const QMenuBar *bar, const QStringList &path)
{
    QAction *item = nullptr;
    for (QAction *top : bar->actions()) {
        if (QKMenus::plainTitle(top->text()) == path.first())
            item = top;
    }
    for (const QString &title : path.mid(1))
        item = item && item->menu() ? QKMenus::itemWithTitle(item->menu(), title) : nullptr;
    return item;
}

QStringList titles(const QMenu *menu)
{
    QStringList items;
    for (const QAction *item : menu->actions()) {
        items << QKMenus::plainTitle(item->text());
        if (item->menu())
            items.last() += u">["_s + titles(item->menu()).join(u", "_s) + u']';
    }
    return items;
}

} // namespace

TEST(SoundLabPlugins, installedPluginsFillTheMenusAndAnInstrumentGoesToTheSelectedTrack)
{
    qputenv("LV2_PATH", QByteArray(QK_TEST_LV2_BUNDLES "/basic"));
    const QString vstFolder = QKTestEnvironment::homeFile(u"vst"_s);
    QDir().mkpath(vstFolder + u"/Acme"_s);
    ASSERT_TRUE(QFile::copy(QStringLiteral(QK_TEST_VST_DIR "/SynthByFlag.so"),
                            vstFolder + u"/Acme/Pad.so"_s));
    ASSERT_TRUE(
        QFile::copy(QStringLiteral(QK_TEST_VST_DIR "/Crash.so"), vstFolder + u"/Crash.so"_s));
    qputenv("VST_PATH", QFile::encodeName(vstFolder));

    SoundLabPlugins plugins;
    plugins.validate(); // the crashing plug-in takes a validator down, not Sound Lab
    SoundLabWindow window;
    window.addPluginMenus(&plugins);
    window.show();

    const QMenuBar *bar = window.menuBar();
    EXPECT_EQ(titles(menuItem(bar, {u"Effects"_s, u"LV2"_s})->menu()),
              QStringList({u"Able>[Noise]"_s, u"Acme>[Delay]"_s, u"Zed>[Arpeggiator]"_s}));
    EXPECT_EQ(titles(menuItem(bar, {u"Instruments"_s, u"LV2"_s})->menu()),
              QStringList({u"Able>[Piano]"_s}));
    ASSERT_NE(menuItem(bar, {u"Instruments"_s, u"VST"_s, u"Acme"_s, u"Pad"_s}), nullptr);
    EXPECT_EQ(menuItem(bar, {u"Effects"_s, u"VST"_s, u"Crash"_s}), nullptr);

    auto *table = window.findChild<QTableView *>(u"trackTable"_s);
    table->setCurrentIndex(table->model()->index(1, 0));
    menuItem(bar, {u"Instruments"_s, u"LV2"_s, u"Able"_s, u"Piano"_s})->trigger();
    const QModelIndex instrument = table->model()->index(1, 1);
    EXPECT_EQ(instrument.data().toString(), u"Able Piano"_s);
    const QString details = instrument.data(Qt::ToolTipRole).toString();
    EXPECT_TRUE(details.contains(u"by Able"_s)) << details.toStdString();
    EXPECT_TRUE(details.contains(u"output: stereo"_s)) << details.toStdString();

    menuItem(bar, {u"Instruments"_s, u"VST"_s, u"Acme"_s, u"Pad"_s})->trigger();
    EXPECT_EQ(instrument.data().toString(), u"Flag Synth"_s);
    EXPECT_TRUE(instrument.data(Qt::ToolTipRole).toString().contains(u"0 in, 2 out"_s));
    // The other tracks keep theirs.
    EXPECT_EQ(table->model()->index(0, 1).data().toString(), u"Sine generator"_s);
}
