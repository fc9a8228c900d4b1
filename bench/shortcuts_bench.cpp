// What a key press costs in the shortcut registry, against Qt's own shortcut machinery holding
// the same keys: a hit (the last key bound, an action is performed) and a miss (no shortcut
// has the key), with 40 and with 2,000 shortcuts (40 groups of 50).
//
// Qt's figures are a key press sent to a widget of a window that holds one QShortcut per key:
// Qt's override round, its shortcut map, then the widget's own handling. The registry's
// figures are performShortcut() alone, the work it adds in front of that delivery.
// "QtDeliveryWithoutShortcuts" is the same delivery with no shortcuts at all.

#include <QKBundle.h>
#include <QKKeyboardShortcuts.h>
#include <QKPropertyList.h>
#include <QKShortcutKey.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QKeyEvent>
#include <QShortcut>
#include <QTemporaryDir>
#include <QWidget>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace {

constexpr int GroupSize = 50;

// The target of every shortcut's action.
class Responder : public QWidget
{
    Q_OBJECT
public:
    long long performed = 0;
    Q_INVOKABLE void benchAction(QObject *) { ++performed; }
};

// Distinct keys: letters of several scripts and function keys, each with every combination
// of the four modifiers.
std::vector<QKShortcutKey> distinctKeys(int count)
{
    std::vector<char16_t> characters;
    for (char16_t c = u'a'; c <= u'z'; ++c)
        characters.push_back(c);
    for (char16_t c = u'0'; c <= u'9'; ++c)
        characters.push_back(c);
    for (char16_t c = 0xF704; c <= 0xF712; ++c)
        characters.push_back(c);
    for (char16_t c = 0x3B1; c <= 0x3C9; ++c)
        characters.push_back(c);
    for (char16_t c = 0x430; c <= 0x44F; ++c)
        characters.push_back(c);
    // Latin-1 letters arrive with their upper-case code, as Qt names their keys.
    for (char16_t c = 0xC0; c <= 0xDE; ++c) {
        if (c != 0xD7)
            characters.push_back(c);
    }
    std::vector<QKShortcutKey> keys;
    for (quint32 modifiers = 0; modifiers < 16 && int(keys.size()) < count; ++modifiers) {
        for (char16_t character : characters) {
            if (int(keys.size()) == count)
                break;
            keys.emplace_back(character, modifiers << 17);
        }
    }
    return keys;
}

QVariantList shortcutList(const std::vector<QKShortcutKey> &keys)
{
    QVariantList groups;
    QVariantList shortcuts;
    for (size_t i = 0; i < keys.size(); ++i) {
        QVariantMap state = keys[i].state();
        state.insert("name", QStringLiteral("Shortcut %1").arg(i));
        state.insert("action", QStringLiteral("benchAction:"));
        state.insert("enabled", true);
        shortcuts << state;
        if (shortcuts.size() == GroupSize || i + 1 == keys.size()) {
            groups << QVariantMap{{"name", QStringLiteral("Group %1").arg(groups.size())},
                                  {"isMenu", false},
                                  {"shortcuts", shortcuts}};
            shortcuts.clear();
        }
    }
    return groups;
}

QKeyEvent keyEventFor(const QKShortcutKey &key)
{
    const QKeyCombination combination = key.keySequence()[0];
    return QKeyEvent(QEvent::KeyPress, combination.key(), combination.keyboardModifiers(),
                     QString(QChar(key.character())));
}

// A key bound by none of the shortcuts.
QKShortcutKey missingKey()
{
    return QKShortcutKey(0xF713, QKShortcutKey::Command | QKShortcutKey::Option);
}

struct Fixture
{
    QTemporaryDir folder;
    std::unique_ptr<QKBundle> bundle;
    std::unique_ptr<Responder> window = std::make_unique<Responder>();
    QWidget *focus = new QWidget(window.get());
    std::vector<QKShortcutKey> keys;
    int qtFired = 0;

    explicit Fixture(int count) : keys(distinctKeys(count))
    {
        focus->setFocusPolicy(Qt::StrongFocus);
        window->resize(200, 100);
        window->show();
        QApplication::setActiveWindow(window.get());
        focus->setFocus();
        QCoreApplication::processEvents();
    }

    void loadRegistry()
    {
        QKPropertyList::writeFile(shortcutList(keys),
                                  QDir(folder.path()).filePath("shortcuts.xml"));
        bundle = std::make_unique<QKBundle>(QStringList{folder.path()});
        QKKeyboardShortcuts::sharedInstance()->setBundle(bundle.get());
        QKKeyboardShortcuts::sharedInstance()->loadShortcutsFromPreferencesWithChanges(false);
    }

    void addQtShortcuts()
    {
        for (const QKShortcutKey &key : keys) {
            auto *shortcut = new QShortcut(key.keySequence(), window.get());
            QObject::connect(shortcut, &QShortcut::activated, [this] { ++qtFired; });
        }
    }
};

void registryPress(benchmark::State &state, bool hit)
{
    Fixture fixture(int(state.range(0)));
    fixture.loadRegistry();
    QKeyEvent event = keyEventFor(hit ? fixture.keys.back() : missingKey());
    for (auto _ : state)
        benchmark::DoNotOptimize(QKKeyboardShortcuts::performShortcut(&event));
    if (fixture.window->performed != (hit ? state.iterations() : 0))
        state.SkipWithError("the registry did not perform as expected");
}

void qtPress(benchmark::State &state, bool hit, bool withShortcuts)
{
    Fixture fixture(int(state.range(0)));
    if (withShortcuts)
        fixture.addQtShortcuts();
    QKeyEvent event = keyEventFor(hit ? fixture.keys.back() : missingKey());
    for (auto _ : state)
        benchmark::DoNotOptimize(QApplication::sendEvent(fixture.focus, &event));
    if (fixture.qtFired != (hit && withShortcuts ? state.iterations() : 0))
        state.SkipWithError("Qt's shortcuts did not fire as expected");
}

void RegistryHit(benchmark::State &state)
{
    registryPress(state, true);
}

void RegistryMiss(benchmark::State &state)
{
    registryPress(state, false);
}

void QtShortcutHit(benchmark::State &state)
{
    qtPress(state, true, true);
}

void QtShortcutMiss(benchmark::State &state)
{
    qtPress(state, false, true);
}

void QtDeliveryWithoutShortcuts(benchmark::State &state)
{
    qtPress(state, false, false);
}

} // namespace

BENCHMARK(RegistryHit)->Arg(40)->Arg(2000);
BENCHMARK(RegistryMiss)->Arg(40)->Arg(2000);
BENCHMARK(QtShortcutHit)->Arg(40)->Arg(2000);
BENCHMARK(QtShortcutMiss)->Arg(40)->Arg(2000);
BENCHMARK(QtDeliveryWithoutShortcuts)->Arg(0);

int main(int argc, char **argv)
{
    // Widgets without a display; settings and logs in a home of the benchmark's own.
    QTemporaryDir home;
    setenv("HOME", QFile::encodeName(home.path()).constData(), 1);
    setenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + "/.config").constData(), 1);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

#include "shortcuts_bench.moc"
