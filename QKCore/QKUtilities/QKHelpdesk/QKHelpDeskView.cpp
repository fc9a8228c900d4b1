#include "QKHelpDeskView.h"

#include "QKHelpDesk.h"

#include <QKUserDefaults.h>

QKHelpDeskView::QKHelpDeskView(QWidget *parent) : QWidget(parent) {}

QKHelpDeskView::~QKHelpDeskView() = default;

QString QKHelpDeskView::identifier() const
{
    return QString();
}

QString QKHelpDeskView::title() const
{
    return QString();
}

bool QKHelpDeskView::isResizable() const
{
    return false;
}

double QKHelpDeskView::minimumHeight() const
{
    return 100.0;
}

void QKHelpDeskView::awakeFromNib()
{
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    const QString key = frameDefaultsKey();
    // The stored text is trusted as it is: one that does not parse gives a zero frame.
    if (defaults->hasKey(key) && isResizable())
        setGeometry(NSRectFromString(defaults->stringForKey(key)).toRect());
}

void QKHelpDeskView::viewDidEndLiveResize()
{
    if (isResizable())
        QKUserDefaults::standardUserDefaults()->setObject(NSStringFromRect(frame()),
                                                          frameDefaultsKey());
}

void QKHelpDeskView::castsDidLoad() {}

QRectF QKHelpDeskView::frame() const
{
    return QRectF(geometry());
}

QString QKHelpDeskView::frameDefaultsKey() const
{
    return QStringLiteral("Help Desk View Frame %1").arg(title());
}

QKHelpDesk *QKHelpDeskView::helpDesk() const
{
    return m_helpDesk;
}

void QKHelpDeskView::setHelpDesk(QKHelpDesk *helpDesk)
{
    m_helpDesk = helpDesk;
}
