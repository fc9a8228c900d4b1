#include "QKPreferencesPane.h"

#include "QKUserDefaults.h"

QKPreferencesPane::QKPreferencesPane(QWidget *parent)
    : QWidget(parent), m_defaults(QKUserDefaults::standardUserDefaults())
{}

QKPreferencesPane::~QKPreferencesPane() = default;

QString QKPreferencesPane::identifier() const
{
    return QString();
}

QString QKPreferencesPane::title() const
{
    return QString();
}

QString QKPreferencesPane::tooltip() const
{
    return QString();
}

QIcon QKPreferencesPane::image() const
{
    return QIcon();
}

void QKPreferencesPane::paneWillBecomeFront() {}

void QKPreferencesPane::paneDidBecomeFront() {}

void QKPreferencesPane::paneWillResignFront() {}

void QKPreferencesPane::paneDidResignFront() {}

void QKPreferencesPane::updateControls() {}

void QKPreferencesPane::itemChanged(QObject *) {}

QSize QKPreferencesPane::paneSize() const
{
    return testAttribute(Qt::WA_Resized) ? size() : sizeHint();
}
