#include "QKApplicationLog.h"
#include "QKMenus.h"
#include "QKPropertyList.h"
#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"
#include "QKVSTManager.h"

#include <QAction>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMenu>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

namespace {

const QString ThisMachine = u"this-machine"_s;

QString builtPlugin(const QString &name)
{
    return QStringLiteral(QK_TEST_VST_DIR "/") + name + u".so"_s;
}

QString pluginRoot()
{
    return QKTestEnvironment::homeFile(u"vst"_s);
}

// Copies the built plug-in @p plugin to @p relativePath below the plug-in folder.
QString install(const QString &plugin, const QString &relativePath)
{
    const QString path = pluginRoot() + u'/' + relativePath;
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    EXPECT_TRUE(QFile::copy(builtPlugin(plugin), path)) << path.toStdString();
    return path;
}

std::unique_ptr<QKVSTManager> makeManager(const QString &code = ThisMachine)
{
    auto manager = std::make_unique<QKVSTManager>(code);
    manager->setPluginFolders({pluginRoot()});
    return manager;
}

const QKVSTDescription *entry(const QKVSTManager &manager, const QString &relativePath)
{
    for (const QKVSTDescription &description : manager.database()) {
        if (description.path() == pluginRoot() + u'/' + relativePath)
            return &description;
    }
    return nullptr;
}

// The menu as text: items in order, a submenu as "Title>[...]", disabled items in "()".
QString outline(const QMenu *menu)
{
    QStringList items;
    for (const QAction *item : menu->actions()) {
        if (item->menu())
            items << QKMenus::plainTitle(item->text()) + u">["_s + outline(item->menu()) + u']';
        else if (item->isEnabled())
            items << QKMenus::plainTitle(item->text());
        else
            items << u'(' + QKMenus::plainTitle(item->text()) + u')';
    }
    return items.join(u", "_s);
}

QString effects(const QKVSTManager &manager)
{
    return outline(manager.effectsMenuWithTarget(nullptr, "choosePlugin:").get());
}

QString instruments(const QKVSTManager &manager)
{
    return outline(manager.instrumentsMenuWithTarget(nullptr, "choosePlugin:").get());
}

QByteArray logText()
{
    return QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath());
}

class PluginChooser : public QObject
{
    Q_OBJECT
public:
    Q_INVOKABLE void choosePlugin(QObject *sender)
    {
        chosen = qobject_cast<QAction *>(sender)->data().value<QKVSTDescription>();
    }
    QKVSTDescription chosen;
};

// The child side of the crash test: validates the parent's catalogue in the parent's HOME,
// where one plug-in crashes while loading.
class ValidatingChild : public ::testing::Environment
{
public:
    void SetUp() override
    {
        const QByteArray home = qgetenv("QK_VST_CHILD_HOME");
        if (home.isEmpty())
            return;
        QDir(QKTestEnvironment::homePath()).removeRecursively();
        qputenv("HOME", home);
        const rlimit noCoreFile = {0, 0};
        ::setrlimit(RLIMIT_CORE, &noCoreFile);
        QKVSTManager manager(ThisMachine);
        manager.setPluginFolders({QFile::decodeName(home) + u"/vst"_s});
        manager.validate();
        std::_Exit(3); // did not crash
    }
};

[[maybe_unused]] ::testing::Environment *const validatingChild =
    ::testing::AddGlobalTestEnvironment(new ValidatingChild);

} // namespace

TEST(VSTCatalogue, firstValidationLearnsEachPluginOnceAndKeepsIt)
{
    const struct
    {
        const char *plugin;
        const char *file;
        bool loaded;
        const char *name;
        const char *vendor;
        bool instrument;
        int inputs, outputs;
    } rows[] = {
        {"Effect", "Effect.so", true, "Test Delay", "Acme Audio", false, 2, 2},
        {"SynthByFlag", "SynthByFlag.so", true, "Flag Synth", "Acme Audio", true, 0, 2},
        {"SynthByCategory", "SynthByCategory.so", true, "Category Synth", "Zed", true, 0, 1},
        {"ProductOnly", "ProductOnly.so", true, "Product Name", "", false, 1, 1},
        {"Unnamed", "Unnamed.so", true, "Unnamed", "", false, 1, 1},
        {"MainOnly", "MainOnly.so", true, "Legacy Chorus", "Old Co", false, 2, 2},
        // A folder named like a plug-in is walked into.
        {"Effect", "Bundle.so/Inner.so", true, "Test Delay", "Acme Audio", false, 2, 2},
        {"NullEffect", "NullEffect.so", false, "", "", false, 0, 0},
        {"WrongMagic", "WrongMagic.so", false, "", "", false, 0, 0},
        {"NotAPlugin", "libhelper.so", false, "", "", false, 0, 0},
    };
    for (const auto &row : rows)
        install(QString::fromLatin1(row.plugin), QString::fromLatin1(row.file));
    for (const char *notAPlugin : {"Thing.VST", "Effect.SO", "libhelper.so.1", "Effect.so.txt"})
        install(u"Effect"_s, QString::fromLatin1(notAPlugin));

    auto manager = makeManager();
    manager->validate();

    EXPECT_EQ(manager->database().size(), std::size(rows));
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file);
        const QKVSTDescription *description = entry(*manager, QString::fromLatin1(row.file));
        ASSERT_NE(description, nullptr);
        EXPECT_EQ(description->isLoaded(), row.loaded);
        EXPECT_EQ(description->name(), QString::fromLatin1(row.name));
        EXPECT_EQ(description->vendor(), QString::fromLatin1(row.vendor));
        EXPECT_EQ(description->isInstrument(), row.instrument);
        EXPECT_EQ(description->numInputs(), row.inputs);
        EXPECT_EQ(description->numOutputs(), row.outputs);
        EXPECT_EQ(description->computerCode(), ThisMachine);
        EXPECT_FALSE(description->ignore());
        // Another process loads an entry from its path alone and sends the result back.
        QKVSTDescription fromPath =
            QKVSTDescription::descriptionWithState({{u"path"_s, description->path()}});
        fromPath.load();
        fromPath.setComputerCode(ThisMachine);
        fromPath.setState({{u"modificationDate"_s, description->modificationDate()}});
        EXPECT_EQ(QKVSTDescription::descriptionWithState(fromPath.state()).state(),
                  description->state());
    }
    EXPECT_FALSE(QFileInfo::exists(manager->loadingFilePath()));

    // Unchanged plug-ins are never loaded again: a name edited in the database survives.
    QVariantList states = QKPropertyList::readFile(manager->databasePath()).toList();
    ASSERT_EQ(states.size(), std::size(rows));
    QVariantMap first = states.first().toMap();
    first.insert(u"name"_s, u"Edited"_s);
    states.first() = first;
    ASSERT_TRUE(QKPropertyList::writeFile(states, manager->databasePath()));
    auto relaunched = makeManager();
    relaunched->validate();
    ASSERT_EQ(relaunched->database().size(), std::size(rows));
    EXPECT_EQ(relaunched->database().first().name(), u"Edited"_s);
}

// A plug-in may leave a thread running its own code after it was closed. Unloading that code
// under the thread would take the host down a moment after validation.
TEST(VSTCatalogue, aPluginThatLeavesAThreadRunningDoesNotTakeTheHostDown)
{
    install(u"Busy"_s, u"Busy.so"_s);
    auto manager = makeManager();
    manager->validate();
    const QKVSTDescription *description = entry(*manager, u"Busy.so"_s);
    ASSERT_NE(description, nullptr);
    EXPECT_TRUE(description->isLoaded());
    EXPECT_EQ(description->name(), u"Busy Reverb"_s);
    // The thread wakes every half millisecond; it would have met unmapped code by now.
    QThread::msleep(200);
}

TEST(VSTCatalogue, aPluginThatCrashedTheProcessIsIgnoredFromTheNextValidationOn)
{
    const QString crashing = install(u"Crash"_s, u"a/Crash.so"_s);
    install(u"Effect"_s, u"b/Effect.so"_s);

    QProcessEnvironment environment = QKTestEnvironment::crashingChildEnvironment();
    environment.insert(u"QK_VST_CHILD_HOME"_s, QKTestEnvironment::homePath());
    QProcess child;
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QCoreApplication::applicationFilePath(),
                {u"--gtest_filter=VSTCatalogue.aPluginThatCrashed*"_s});
    ASSERT_TRUE(child.waitForFinished(60000));
    ASSERT_EQ(child.exitStatus(), QProcess::CrashExit) << child.readAll().toStdString();

    auto manager = makeManager();
    EXPECT_EQ(QKTestEnvironment::readAll(manager->loadingFilePath()), QFile::encodeName(crashing));
    // The entry was saved before its load.
    ASSERT_EQ(manager->database().size(), 1);
    EXPECT_EQ(manager->database().first().path(), crashing);

    manager->validate(); // would crash here, loading it again
    EXPECT_FALSE(QFileInfo::exists(manager->loadingFilePath()));
    ASSERT_EQ(manager->database().size(), 2);
    EXPECT_TRUE(entry(*manager, u"a/Crash.so"_s)->ignore());
    EXPECT_EQ(effects(*manager), u"b>[Effect]"_s);
    EXPECT_TRUE(logText().contains("stopped the process"));
}

TEST(VSTCatalogue, menusFollowTheFoldersBelowThePluginFolder)
{
    install(u"Effect"_s, u"Acme/Reverb.so"_s);
    install(u"Effect"_s, u"Delay.so"_s);
    install(u"Effect"_s, u"Acme/Sub/Deep.so"_s);
    install(u"Effect"_s, u"acme2/Chorus.so"_s);
    install(u"Effect"_s, u"R&B/Bass & Drums.so"_s);
    install(u"SynthByFlag"_s, u"Synths/Pad.so"_s);
    install(u"SynthByCategory"_s, u"Lead.so"_s);
    install(u"WrongMagic"_s, u"Acme/Broken.so"_s);
    auto manager = makeManager();
    manager->validate();

    EXPECT_EQ(effects(*manager),
              u"Acme>[Reverb, Sub>[Deep]], acme2>[Chorus], Delay, R&B>[Bass & Drums]"_s);
    EXPECT_EQ(instruments(*manager), u"Lead, Synths>[Pad]"_s);

    PluginChooser chooser;
    const auto menu = manager->instrumentsMenuWithTarget(&chooser, "choosePlugin:");
    menu->actions().at(1)->menu()->actions().at(0)->trigger();
    EXPECT_EQ(chooser.chosen.path(), pluginRoot() + u"/Synths/Pad.so"_s);
    EXPECT_EQ(chooser.chosen.name(), u"Flag Synth"_s);
}

TEST(VSTCatalogue, onlyAnEmptyCatalogueSaysNoPluginsFound)
{
    const struct
    {
        const char *plugin;
        const char *effects;
        const char *instruments;
    } rows[] = {
        {nullptr, "(No plug-ins found)", "(No plug-ins found)"},
        {"Effect", "Effect", ""},
        {"NotAPlugin", "", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.effects);
        QDir(pluginRoot()).removeRecursively();
        QFile::remove(makeManager()->databasePath());
        if (row.plugin)
            install(QString::fromLatin1(row.plugin), QString::fromLatin1(row.plugin) + u".so"_s);
        auto manager = makeManager();
        manager->validate();
        EXPECT_EQ(effects(*manager), QString::fromLatin1(row.effects));
        EXPECT_EQ(instruments(*manager), QString::fromLatin1(row.instruments));
    }
}

TEST(VSTCatalogue, changedFilesAndOtherMachinesAreValidatedAgain)
{
    const QString path = install(u"Effect"_s, u"Effect.so"_s);
    install(u"Effect"_s, u"Kept.so"_s);
    {
        auto manager = makeManager(u"other-machine"_s);
        manager->validate();
        ASSERT_EQ(manager->database().size(), 2);
    }
    // Another machine's entries go, and come back as this machine's.
    auto manager = makeManager();
    manager->validate();
    ASSERT_EQ(manager->database().size(), 2);
    EXPECT_EQ(entry(*manager, u"Effect.so"_s)->computerCode(), ThisMachine);
    EXPECT_EQ(entry(*manager, u"Kept.so"_s)->computerCode(), ThisMachine);

    // Updated in place: a new file under the same path with a new date is loaded again.
    install(u"SynthByFlag"_s, u"Effect.so"_s);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTime().addSecs(-3600),
                                 QFileDevice::FileModificationTime));
    file.close();
    manager->validate();
    ASSERT_EQ(manager->database().size(), 2);
    EXPECT_EQ(manager->database().first().path(), pluginRoot() + u"/Kept.so"_s);
    EXPECT_TRUE(entry(*manager, u"Effect.so"_s)->isInstrument());

    // A removed plug-in leaves the catalogue.
    QFile::remove(path);
    manager->validate();
    ASSERT_EQ(manager->database().size(), 1);
    EXPECT_EQ(makeManager()->database().size(), 1);
}

TEST(VSTCatalogue, theLoadingMarkerIsReadAndRemoved)
{
    const struct
    {
        const char *name;
        QByteArray marker;
        bool effectIgnored;
    } rows[] = {
        {"catalogued path", QFile::encodeName(pluginRoot() + u"/Effect.so"_s), true},
        {"unknown path", QFile::encodeName(pluginRoot() + u"/Gone.so"_s), false},
        {"too long", QByteArray(70000, 'x'), false},
        {"empty", QByteArray(), false},
    };
    install(u"Effect"_s, u"Effect.so"_s);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        QFile::remove(makeManager()->databasePath());
        makeManager()->validate();
        ASSERT_TRUE(QKTestEnvironment::writeAll(makeManager()->loadingFilePath(), row.marker));
        auto manager = makeManager();
        manager->validate();
        EXPECT_FALSE(QFileInfo::exists(manager->loadingFilePath()));
        ASSERT_EQ(manager->database().size(), 1);
        EXPECT_EQ(manager->database().first().ignore(), row.effectIgnored);
        EXPECT_EQ(effects(*manager), row.effectIgnored ? u""_s : u"Effect"_s);
        EXPECT_EQ(makeManager()->database().first().ignore(), row.effectIgnored);
    }
}

TEST(VSTCatalogue, hostileFoldersAreSkippedAndLogged)
{
    install(u"Effect"_s, u"Effect.so"_s);
    ASSERT_TRUE(QFile::link(pluginRoot(), pluginRoot() + u"/loop"_s));
    ASSERT_TRUE(QFile::link(u"."_s, pluginRoot() + u"/self"_s));
    ASSERT_TRUE(QFile::link(u"missing.so"_s, pluginRoot() + u"/Dangling.so"_s));
    const QString locked = install(u"Effect"_s, u"locked/Locked.so"_s);
    QFile::setPermissions(QFileInfo(locked).path(), QFileDevice::Permissions());
    const QString file = QKTestEnvironment::homeFile(u"a-file"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(file, "not a folder"));

    QKVSTManager manager(ThisMachine);
    manager.setPluginFolders(
        {file, QKTestEnvironment::homeFile(u"missing"_s), pluginRoot(), pluginRoot() + u"/loop"_s});
    manager.validate();
    QFile::setPermissions(QFileInfo(locked).path(),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

    QStringList paths;
    for (const QKVSTDescription &description : manager.database())
        paths << description.path().mid(pluginRoot().size());
    // Only root can still list a folder without permissions.
    const QStringList expected = ::geteuid() == 0
                                     ? QStringList{u"/Effect.so"_s, u"/locked/Locked.so"_s}
                                     : QStringList{u"/Effect.so"_s};
    EXPECT_EQ(paths, expected);
    const QByteArray log = logText();
    EXPECT_TRUE(log.contains("is not a folder; skipped")) << log.toStdString();
    EXPECT_TRUE(log.contains("/vst/loop\" leads to a folder walked already"));
    EXPECT_TRUE(log.contains("/vst/self\" leads to a folder walked already"));
    if (::geteuid() != 0) {
        EXPECT_TRUE(log.contains("cannot walk the VST folder"));
    }
}

TEST(VSTCatalogue, aDamagedDatabaseIsLoggedAndRebuilt)
{
    const QString path = install(u"Effect"_s, u"Effect.so"_s);
    const QString database = makeManager()->databasePath();
    const QVariantList wrongShapes = {
        u"a string"_s,
        QVariantMap{{u"path"_s, 5}, {u"ignore"_s, u"yes"_s}, {u"numInputs"_s, u"two"_s}},
        QVariantMap{{u"path"_s, path}, {u"computerCode"_s, ThisMachine}, {u"loaded"_s, true}},
    };
    const struct
    {
        const char *name;
        QByteArray contents;
        const char *logged;
    } rows[] = {
        {"not a property list", "<<garbage", "is not a list of entries"},
        {"entries of the wrong shape", QKPropertyList::toData(wrongShapes),
         "key \"path\" holds a "},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(QKTestEnvironment::writeAll(database, row.contents));
        auto manager = makeManager();
        manager->validate();
        ASSERT_EQ(manager->database().size(), 1);
        EXPECT_EQ(manager->database().first().name(), u"Test Delay"_s);
        EXPECT_TRUE(logText().contains(row.logged)) << logText().toStdString();
    }
}

TEST(VSTCatalogue, pluginFoldersAreTheStandardOnesThenVSTPath)
{
    qputenv("VST_PATH", "/opt/vst::relative/vst:~/more/");
    const QString home = QKTestEnvironment::homePath();
    EXPECT_EQ(
        QKVSTManager::standardPluginFolders(),
        (QStringList{u"/usr/lib/vst"_s, u"/usr/local/lib/vst"_s, home + u"/.vst"_s,
                     u"/usr/lib/lxvst"_s, home + u"/.lxvst"_s, u"/opt/vst"_s, home + u"/more"_s}));
    qunsetenv("VST_PATH");
}

#include "test_QKVSTManager.moc"
