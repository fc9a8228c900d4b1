#include "SoundLabPreferences.h"

#include "SoundLabMetersPane.h"
#include "SoundLabTracksPane.h"

SoundLabPreferences::SoundLabPreferences() = default;

QString SoundLabPreferences::panelNibName() const
{
    return QStringLiteral("SoundLabPreferences");
}

QList<QKPreferencesPane *> SoundLabPreferences::panes() const
{
    return m_panes;
}

void SoundLabPreferences::loadPanelNib(QWidget *panel)
{
    panel->setWindowTitle(tr("Sound Lab Preferences"));
    auto *tracks = new SoundLabTracksPane(panel);
    auto *meters = new SoundLabMetersPane(panel);
    connect(tracks, &SoundLabTracksPane::settingsChanged, this,
            &SoundLabPreferences::settingsChanged);
    connect(meters, &SoundLabMetersPane::settingsChanged, this,
            &SoundLabPreferences::settingsChanged);
    m_panes = {tracks, meters};
}
