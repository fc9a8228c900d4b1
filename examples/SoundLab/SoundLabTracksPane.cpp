#include "SoundLabTracksPane.h"

#include "SoundLabSettings.h"

#include <QKUserDefaults.h>

#include <QApplication>
#include <QFormLayout>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStyle>

SoundLabTracksPane::SoundLabTracksPane(QWidget *parent)
    : QKPreferencesPane(parent), m_fontSize(new QSpinBox)
{
    setToolTip(tr("How the track table looks"));
    m_fontSize->setObjectName(QStringLiteral("trackFontSize"));
    m_fontSize->setRange(6, 32);
    m_fontSize->setSuffix(tr(" pt"));
    connect(m_fontSize, &QSpinBox::valueChanged, this, [this] { itemChanged(m_fontSize); });
    auto *form = new QFormLayout(this);
    form->addRow(tr("Track font size:"), m_fontSize);
    resize(380, 90);
}

QIcon SoundLabTracksPane::image() const
{
    return QApplication::style()->standardIcon(QStyle::SP_FileDialogDetailedView);
}

void SoundLabTracksPane::updateControls()
{
    const QSignalBlocker quiet(m_fontSize);
    m_fontSize->setValue(int(defaults()->integerForKey(SoundLabSettings::TrackFontSizeKey)));
}

void SoundLabTracksPane::itemChanged(QObject *)
{
    defaults()->setInteger(m_fontSize->value(), SoundLabSettings::TrackFontSizeKey);
    Q_EMIT settingsChanged();
}
