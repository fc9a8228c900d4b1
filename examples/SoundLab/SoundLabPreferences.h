#pragma once

#include <QKPreferencesPanel.h>

/**
 * Sound Lab's preferences window: a "Tracks" pane (the track table's font size) and a
 * "Meters" pane (the level meters' colour and peak hold). Made with
 * QKPreferencesPanel::sharedInstance<SoundLabPreferences>().
 */
class SoundLabPreferences : public QKPreferencesPanel
{
    Q_OBJECT
public:
    SoundLabPreferences();

    QString panelNibName() const override;
    QList<QKPreferencesPane *> panes() const override;

Q_SIGNALS:
    /** A pane stored a changed setting. */
    void settingsChanged();

protected:
    void loadPanelNib(QWidget *panel) override;

private:
    QList<QKPreferencesPane *> m_panes;
};
