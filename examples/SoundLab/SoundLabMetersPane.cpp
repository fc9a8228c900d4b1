#include "SoundLabMetersPane.h"

#include "SoundLabSettings.h"

#include <QKUserDefaults.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QSignalBlocker>
#include <QStyle>

SoundLabMetersPane::SoundLabMetersPane(QWidget *parent)
    : QKPreferencesPane(parent), m_colour(new QComboBox), m_peakHold(new QCheckBox)
{
    setToolTip(tr("How the level meters look"));
    m_colour->setObjectName(QStringLiteral("meterColour"));
    m_colour->addItem(tr("Green"), QStringLiteral("green"));
    m_colour->addItem(tr("Blue"), QStringLiteral("blue"));
    m_colour->addItem(tr("Amber"), QStringLiteral("amber"));
    m_peakHold->setObjectName(QStringLiteral("meterPeakHold"));
    m_peakHold->setText(tr("Hold peaks for a moment"));
    connect(m_colour, &QComboBox::currentIndexChanged, this, [this] { itemChanged(m_colour); });
    connect(m_peakHold, &QCheckBox::toggled, this, [this] { itemChanged(m_peakHold); });

    auto *form = new QFormLayout(this);
    form->addRow(tr("Meter colour:"), m_colour);
    form->addRow(QString(), m_peakHold);
    resize(380, 130);
}

QIcon SoundLabMetersPane::image() const
{
    return QApplication::style()->standardIcon(QStyle::SP_MediaVolume);
}

void SoundLabMetersPane::updateControls()
{
    const QSignalBlocker quietColour(m_colour);
    const QSignalBlocker quietHold(m_peakHold);
    const int index =
        m_colour->findData(defaults()->stringForKey(SoundLabSettings::MeterColourKey));
    m_colour->setCurrentIndex(std::max(index, 0));
    m_peakHold->setChecked(defaults()->boolForKey(SoundLabSettings::MeterPeakHoldKey));
}

void SoundLabMetersPane::itemChanged(QObject *)
{
    defaults()->setObject(m_colour->currentData(), SoundLabSettings::MeterColourKey);
    defaults()->setBool(m_peakHold->isChecked(), SoundLabSettings::MeterPeakHoldKey);
    Q_EMIT settingsChanged();
}
