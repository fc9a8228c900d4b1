#pragma once

#include <QKPreferencesPane.h>

class QCheckBox;
class QComboBox;

/** The "Meters" preferences: the level meters' colour and whether they hold their peaks. */
class SoundLabMetersPane : public QKPreferencesPane
{
    Q_OBJECT
public:
    explicit SoundLabMetersPane(QWidget *parent = nullptr);

    QString identifier() const override { return QStringLiteral("meters"); }
    QString title() const override { return tr("Meters"); }
    QIcon image() const override;
    void updateControls() override;
    void itemChanged(QObject *sender) override;

Q_SIGNALS:
    void settingsChanged();

private:
    QComboBox *m_colour;
    QCheckBox *m_peakHold;
};
