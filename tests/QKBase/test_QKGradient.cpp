#include "QKGradient.h"
#include "QKTestSupport.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>

namespace {

QColor white(qreal level)
{
    return QColor::fromRgbF(float(level), float(level), float(level));
}

// The About panel's and splash screen's background.
const QKGradient panelGradient({{white(0), 0, 0.95}, {white(0.15), 0.5}, {white(0.3), 1}});

// @p gradient filled into a transparent image at @p angle, over @p path or else the image.
QImage paint(const QKGradient &gradient, qreal angle, const QSize &size,
             const QPainterPath &path = {})
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    if (path.isEmpty())
        gradient.fillRect(&painter, image.rect(), angle);
    else
        gradient.fillPath(&painter, path, angle);
    return image;
}

} // namespace

TEST(QKGradient, colorAtPositionFollowsTheStopsAndTheirMidpoints)
{
    // Position and grey level; outside the stops the end colours hold.
    const std::pair<qreal, qreal> samples[] = {
        {0, 0},
        {0.5, 0.15},
        {1, 0.3},
        {-1, 0},
        {2, 0.3},
        // Half and half at the first stop's midpoint, 95% of the way to the next stop; the
        // second stop keeps the default midpoint: linear.
        {0.475, 0.075},
        {0.75, 0.225},
    };
    for (const auto &[position, level] : samples)
        EXPECT_NEAR(panelGradient.colorAtPosition(position).redF(), level, 1e-3) << position;
    // Halfway to the midpoint it is still nearly black, where a linear blend would be 0.075.
    EXPECT_LT(panelGradient.colorAtPosition(0.25).redF(), 0.001);
    const QKGradient early({{white(0), 0, 0.2}, {white(1), 1}});
    EXPECT_NEAR(early.colorAtPosition(0.2).redF(), 0.5, 1e-3);
    EXPECT_GT(early.colorAtPosition(0.1).redF(), 0.3);

    // Stops are ordered and clamped; no stops give no colour.
    const QKGradient unordered({{Qt::red, 1.5}, {Qt::blue, -0.5}, {Qt::green, 0.5}});
    EXPECT_EQ(unordered.colorAtPosition(0), QColor(Qt::blue));
    EXPECT_EQ(unordered.colorAtPosition(1), QColor(Qt::red));
    EXPECT_EQ(QKGradient({{Qt::red, 0.3}}).colorAtPosition(0.9), QColor(Qt::red));
    EXPECT_FALSE(QKGradient().colorAtPosition(0.5).isValid());
}

TEST(QKGradient, anglesFollowTheUpwardYAxisAndPathsTakeTheirOwnBounds)
{
    const QKGradient gradient({{Qt::black, 0}, {Qt::white, 1}});
    // Angle, then the darkest and the lightest point.
    const std::pair<qreal, std::pair<QPoint, QPoint>> ends[] = {
        {0, {{0, 50}, {299, 50}}},
        {180, {{299, 50}, {0, 50}}},
        {270, {{150, 0}, {150, 99}}},
        {90, {{150, 99}, {150, 0}}},
        // Diagonally the gradient ends exactly on the far corners.
        {45, {{0, 99}, {299, 0}}},
    };
    for (const auto &[angle, points] : ends) {
        const QImage image = paint(gradient, angle, QSize(300, 100));
        EXPECT_LE(qRed(image.pixel(points.first)), 1) << angle;
        EXPECT_GE(qRed(image.pixel(points.second)), 254) << angle;
    }
    EXPECT_EQ(qAlpha(paint(QKGradient(), 90, QSize(10, 10)).pixel(5, 5)), 0);

    QPainterPath circle;
    circle.addEllipse(QRectF(50, 50, 100, 100));
    const QImage image = paint(panelGradient, 90, QSize(200, 200), circle);
    EXPECT_EQ(qAlpha(image.pixel(55, 55)), 0);
    EXPECT_EQ(qAlpha(image.pixel(100, 100)), 255);
    // Bottom to top over the path's bounds, not the image's.
    const std::pair<int, qreal> rows[] = {{51, 0.985}, {75, 0.745}, {100, 0.495}};
    for (const auto &[y, position] : rows) {
        EXPECT_NEAR(qRed(image.pixel(100, y)),
                    qRound(panelGradient.colorAtPosition(position).redF() * 255), 2)
            << y;
    }
    EXPECT_LE(qRed(image.pixel(100, 148)), 1);
}
