#pragma once

#include <QKAUManager.h>
#include <QKVSTManager.h>

#include <QString>
#include <QVariant>

#include <memory>

class QMenu;
class QMenuBar;
class QObject;

/**
 * Sound Lab's plug-in catalogues: the installed LV2 and VST plug-ins, validated while the
 * splash screen is up (each in a validator process, so a broken plug-in cannot take Sound
 * Lab down), and offered in an Effects and an Instruments menu.
 */
class SoundLabPlugins
{
public:
    SoundLabPlugins();
    ~SoundLabPlugins();

    /** Brings both catalogues up to date with the installed plug-ins. */
    void validate();

    /** Adds "Effects" and "Instruments" to @p bar: each holds the LV2 menu of that kind and
     *  the VST one. Their items send "chooseEffect:" or "chooseInstrument:" to @p target. */
    void addMenus(QMenuBar *bar, QObject *target);

    struct Choice
    {
        QString title;   // "<maker> <name>", as the track table shows it
        QString details; // maker, name and channel support, for a tool tip
    };
    /** What the item that represents @p plugin stands for; empty when it is unknown. */
    Choice describe(const QVariant &plugin) const;

private:
    QKAUManager m_units;
    QKVSTManager m_vsts;
    std::unique_ptr<QMenu> m_effects;
    std::unique_ptr<QMenu> m_instruments;
};
