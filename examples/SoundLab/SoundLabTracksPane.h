#pragma once

#include <QKPreferencesPane.h>

class QSpinBox;

/** The "Tracks" preferences: the font size of the track table. */
class SoundLabTracksPane : public QKPreferencesPane
{
    Q_OBJECT
public:
    explicit SoundLabTracksPane(QWidget *parent = nullptr);

    QString identifier() const override { return QStringLiteral("tracks"); }
    QString title() const override { return tr("Tracks"); }
    QIcon image() const override;
    void updateControls() override;
    void itemChanged(QObject *sender) override;

Q_SIGNALS:
    void settingsChanged();

private:
    QSpinBox *m_fontSize;
};
