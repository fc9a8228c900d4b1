#include "SoundLabPlugins.h"

#include <QKWorkspace.h>

#include <QMenu>
#include <QMenuBar>
#include <QObject>

namespace {

QString channels(bool mono, bool stereo, bool multichannel)
{
    QStringList kinds;
    if (mono)
        kinds << QObject::tr("mono");
    if (stereo)
        kinds << QObject::tr("stereo");
    if (multichannel)
        kinds << QObject::tr("3 channels");
    return kinds.isEmpty() ? QObject::tr("none") : kinds.join(QStringLiteral(", "));
}

// One top-level menu holding the LV2 menu and the VST menu of the same kind.
std::unique_ptr<QMenu> combinedMenu(const QString &title, std::unique_ptr<QMenu> units,
                                    std::unique_ptr<QMenu> vsts)
{
    auto menu = std::make_unique<QMenu>(title);
    units->setTitle(QObject::tr("LV2"));
    vsts->setTitle(QObject::tr("VST"));
    // The submenus become children of the top menu, which the caller owns; a menu keeps its
    // popup flags only when they are passed along.
    for (QMenu *submenu : {units.release(), vsts.release()}) {
        submenu->setParent(menu.get(), submenu->windowFlags());
        menu->addMenu(submenu);
    }
    return menu;
}

} // namespace

SoundLabPlugins::SoundLabPlugins()
    : m_units(QKWorkspace::machineIdentifier()), m_vsts(QKWorkspace::machineIdentifier())
{
    m_units.setValidatesOutOfProcess(true);
    m_vsts.setValidatesOutOfProcess(true);
}

SoundLabPlugins::~SoundLabPlugins() = default;

void SoundLabPlugins::validate()
{
    m_units.validate();
    m_vsts.validate();
}

void SoundLabPlugins::addMenus(QMenuBar *bar, QObject *target)
{
    m_effects =
        combinedMenu(QObject::tr("Effects"), m_units.effectsMenuWithTarget(target, "chooseEffect:"),
                     m_vsts.effectsMenuWithTarget(target, "chooseEffect:"));
    m_instruments = combinedMenu(QObject::tr("Instruments"),
                                 m_units.instrumentsMenuWithTarget(target, "chooseInstrument:"),
                                 m_vsts.instrumentsMenuWithTarget(target, "chooseInstrument:"));
    // Beside the other menus of the session, before Window and Help.
    QAction *before = nullptr;
    for (QAction *top : bar->actions()) {
        if (top->text() == QObject::tr("Window"))
            before = top;
    }
    bar->insertMenu(before, m_effects.get());
    bar->insertMenu(before, m_instruments.get());
}

SoundLabPlugins::Choice SoundLabPlugins::describe(const QVariant &plugin) const
{
    if (plugin.canConvert<QKVSTDescription>() && plugin.typeId() != QMetaType::QByteArray) {
        const auto vst = plugin.value<QKVSTDescription>();
        return {vst.name(), QObject::tr("%1\nby %2\n%3 in, %4 out")
                                .arg(vst.name(), vst.vendor())
                                .arg(vst.numInputs())
                                .arg(vst.numOutputs())};
    }
    const QByteArray identity = plugin.toByteArray();
    for (const QKAUDescription &unit : m_units.database()) {
        if (unit.componentDescription() != identity)
            continue;
        return {QStringLiteral("%1 %2").arg(unit.manufacturer(), unit.name()),
                QObject::tr("%1\nby %2\ninput: %3\noutput: %4")
                    .arg(unit.name(), unit.manufacturer(),
                         channels(unit.supportsMonoInput(), unit.supportsStereoInput(),
                                  unit.supportsMultichannelInput()),
                         channels(unit.supportsMonoOutput(), unit.supportsStereoOutput(),
                                  unit.supportsMultichannelOutput()))};
    }
    return {};
}
