// Both catalogues with their plug-ins loaded in validator processes: a plug-in that crashes or
// hangs its validator is ignored in the same validation, the others are loaded as in the host.

#include "QKAUManager.h"
#include "QKApplicationLog.h"
#include "QKMenus.h"
#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKVSTManager.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMenu>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString Machine = u"machine-1"_s;

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

int logCount(const QByteArray &text)
{
    return int(
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()).count(text));
}

} // namespace

TEST(PluginValidators, vstPluginsThatCrashOrHangAreIgnoredInTheSameValidation)
{
    const QString root = QKTestEnvironment::homeFile(u"vst"_s);
    const std::pair<const char *, const char *> installed[] = {{"Crash", "Crash.so"},
                                                               {"Effect", "Effect.so"},
                                                               {"Hang", "Slow/Hang.so"},
                                                               {"SynthByFlag", "Synth/Pad.so"},
                                                               {"WrongMagic", "Broken.so"}};
    for (const auto &[plugin, file] : installed) {
        const QString path = root + u'/' + QString::fromLatin1(file);
        QDir().mkpath(QFileInfo(path).path());
        ASSERT_TRUE(QFile::copy(
            QStringLiteral(QK_TEST_VST_DIR "/") + QString::fromLatin1(plugin) + u".so"_s, path));
    }

    QKVSTManager manager(Machine);
    manager.setPluginFolders({root});
    manager.setValidatesOutOfProcess(true);
    manager.validate(); // in this process, the crashing plug-in would end the test here

    ASSERT_EQ(manager.database().size(), std::size(installed));
    QStringList ignored;
    for (const QKVSTDescription &entry : manager.database()) {
        if (entry.ignore())
            ignored << QFileInfo(entry.path()).fileName();
    }
    EXPECT_EQ(ignored, QStringList({u"Crash.so"_s, u"Hang.so"_s}));
    EXPECT_EQ(titles(manager.effectsMenuWithTarget(nullptr, "choose:").get()),
              QStringList({u"Effect"_s}));
    EXPECT_EQ(titles(manager.instrumentsMenuWithTarget(nullptr, "choose:").get()),
              QStringList({u"Synth>[Pad]"_s}));
    EXPECT_FALSE(QFileInfo::exists(manager.loadingFilePath()));
    EXPECT_EQ(logCount("it is ignored from now on"), 2);
    // Saved a piece at a time, with replies arriving after later entries were added, the file
    // is still exactly the whole catalogue.
    QVariantList states;
    for (const QKVSTDescription &entry : manager.database())
        states << entry.state();
    EXPECT_EQ(QKTestEnvironment::readAll(manager.databasePath()), QKPropertyList::toData(states));

    // The verdicts were saved: the next validation, in the host, loads none of them again.
    QKVSTManager relaunched(Machine);
    relaunched.setPluginFolders({root});
    relaunched.validate();
    EXPECT_EQ(relaunched.database().size(), std::size(installed));
    EXPECT_EQ(titles(relaunched.effectsMenuWithTarget(nullptr, "choose:").get()),
              QStringList({u"Effect"_s}));
}

TEST(PluginValidators, aUnitThatCrashesItsValidatorIsIgnoredInTheSameValidation)
{
    qputenv("LV2_PATH", QByteArray(QK_TEST_LV2_BUNDLES "/crash:" QK_TEST_LV2_BUNDLES "/basic"));
    QKAUManager manager(Machine);
    manager.setValidatesOutOfProcess(true);
    manager.validate();

    ASSERT_EQ(manager.database().size(), 5);
    for (const QKAUDescription &entry : manager.database()) {
        SCOPED_TRACE(entry.name().toStdString());
        EXPECT_EQ(entry.ignore(), entry.name().isEmpty());
    }
    EXPECT_EQ(titles(manager.effectsMenuWithTarget(nullptr, "choose:").get()),
              QStringList({u"Able>[Noise]"_s, u"Acme>[Delay]"_s, u"Zed>[Arpeggiator]"_s}));
    EXPECT_EQ(titles(manager.instrumentsMenuWithTarget(nullptr, "choose:").get()),
              QStringList({u"Able>[Piano]"_s}));
    EXPECT_FALSE(QFileInfo::exists(manager.loadingComponentPath()));
    EXPECT_EQ(logCount("it is ignored from now on"), 1);
}

TEST(PluginValidators, anEntryWithTextXmlCannotCarryDoesNotStopTheCatalogueFromSaving)
{
    const QString root = QKTestEnvironment::homeFile(u"vst"_s);
    QDir().mkpath(root);
    for (const char *name : {"Old", "New"})
        ASSERT_TRUE(QFile::copy(QStringLiteral(QK_TEST_VST_DIR "/Effect.so"),
                                root + u'/' + QString::fromLatin1(name) + u".so"_s));
    QKVSTManager manager(Machine);
    manager.setPluginFolders({root});
    // A binary database can hold a name with a control character; XML cannot.
    QKVSTDescription old = QKVSTDescription::descriptionWithPath(root + u"/Old.so"_s);
    old.setComputerCode(Machine);
    QVariantMap state = old.state();
    state.insert(u"name"_s, u"Bad\u0001Name"_s);
    QDir().mkpath(QFileInfo(manager.databasePath()).path());
    ASSERT_TRUE(QKPropertyList::writeFile(QVariantList{state}, manager.databasePath(),
                                          QKPropertyList::Format::Binary));

    QKVSTManager relaunched(Machine);
    relaunched.setPluginFolders({root});
    relaunched.validate();

    const QVariantList saved = QKPropertyList::readFile(relaunched.databasePath()).toList();
    ASSERT_EQ(saved.size(), 2);
    EXPECT_EQ(saved.at(0).toMap().value(u"name"_s), u"Bad\uFFFDName"_s);
    EXPECT_EQ(saved.at(1).toMap().value(u"name"_s), u"Test Delay"_s);
    EXPECT_EQ(logCount("saved with that text replaced"), 1);
}
