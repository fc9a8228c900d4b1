#include "QKGradient.h"
#include "QKTestSupport.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include <functional>

namespace {

QColor white(qreal level)
{
    return QColor::fromRgbF(float(level), float(level), float(level));
}

QImage paint(const QSize &size, const std::function<void(QPainter *)> &draw)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    draw(&painter);
    return image;
}

int grey(const QImage &image, int x, int y)
{
    return qRed(image.pixel(x, y));
}

// The About panel's and splash screen's background.
const QKGradient panelGradient({{white(0), 0, 0.95}, {white(0.15), 0.5}, {white(0.3), 1}});

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
    ASSERT_EQ(unordered.stops().size(), 3);
    EXPECT_EQ(unordered.stops()[0].color, QColor(Qt::blue));
    EXPECT_EQ(unordered.stops()[0].position, 0);
    EXPECT_EQ(unordered.stops()[2].position, 1);
    EXPECT_EQ(QKGradient({{Qt::red, 0.3}}).colorAtPosition(0.9), QColor(Qt::red));
    EXPECT_FALSE(QKGradient().colorAtPosition(0.5).isValid());
}

TEST(QKGradient, anglesFollowTheUpwardYAxis)
{
    const QKGradient gradient({{Qt::black, 0}, {Qt::white, 1}});
    const auto painted = [&](qreal angle) {
        return paint(QSize(300, 100), [&](QPainter *painter) {
            gradient.fillRect(painter, QRectF(0, 0, 300, 100), angle);
        });
    };
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
        const QImage image = painted(angle);
        EXPECT_LE(grey(image, points.first.x(), points.first.y()), 1) << angle;
        EXPECT_GE(grey(image, points.second.x(), points.second.y()), 254) << angle;
    }
    EXPECT_NEAR(grey(painted(45), 150, 50), 128, 2);
    const QImage up = painted(90);
    EXPECT_EQ(grey(up, 0, 30), grey(up, 299, 30));
    // Nothing at all from an empty gradient.
    const QImage empty = paint(QSize(10, 10), [](QPainter *painter) {
        QKGradient().fillRect(painter, QRectF(0, 0, 10, 10), 90);
    });
    EXPECT_EQ(qAlpha(empty.pixel(5, 5)), 0);
}

TEST(QKGradient, fillPathPaintsOnlyInsideOverThePathsBounds)
{
    QPainterPath path;
    path.addEllipse(QRectF(50, 50, 100, 100));
    const QImage image = paint(
        QSize(200, 200), [&](QPainter *painter) { panelGradient.fillPath(painter, path, 90); });
    EXPECT_EQ(qAlpha(image.pixel(55, 55)), 0);
    EXPECT_EQ(qAlpha(image.pixel(10, 190)), 0);
    EXPECT_EQ(qAlpha(image.pixel(100, 100)), 255);
    // Bottom to top over the path's bounds, not the image's.
    const std::pair<int, qreal> rows[] = {{51, 0.985}, {75, 0.745}, {100, 0.495}};
    for (const auto &[y, position] : rows) {
        EXPECT_NEAR(grey(image, 100, y),
                    qRound(panelGradient.colorAtPosition(position).redF() * 255), 2)
            << y;
    }
    EXPECT_LE(grey(image, 100, 148), 1);
}
