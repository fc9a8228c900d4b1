#include "QKHelpDeskReleaseNotesView.h"
#include "ui_QKHelpDeskReleaseNotesView.h"

QKHelpDeskReleaseNotesView::QKHelpDeskReleaseNotesView(QWidget *parent)
    : QKHelpDeskView(parent), ui(std::make_unique<Ui::QKHelpDeskReleaseNotesView>())
{
    ui->setupUi(this);
}

QKHelpDeskReleaseNotesView::~QKHelpDeskReleaseNotesView() = default;

QString QKHelpDeskReleaseNotesView::identifier() const
{
    return QStringLiteral("releaseNotes");
}

QString QKHelpDeskReleaseNotesView::title() const
{
    return QStringLiteral("Release Notes");
}

bool QKHelpDeskReleaseNotesView::isResizable() const
{
    return true;
}

double QKHelpDeskReleaseNotesView::minimumHeight() const
{
    return 200.0;
}
