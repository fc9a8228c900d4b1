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

// The about panel's and splash screen's background.
QKGradient panelGradient()
{
    return QKGradient({{white(0), 0, 0.95}, {white(0.15), 0.5}, {white(0.3), 1}});
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

int expectedGrey(const QKGradient &gradient, qreal position)
{
    return qRound(gradient.colorAtPosition(position).redF() * 255);
}

} // namespace

TEST(QKGradient, colorAtPositionFollowsTheStopsAndTheirMidpoints)
{
    const QKGradient gradient = panelGradient();
    EXPECT_NEAR(gradient.colorAtPosition(0).redF(), 0, 1e-4);
    EXPECT_NEAR(gradient.colorAtPosition(0.5).redF(), 0.15, 1e-4);
    EXPECT_NEAR(gradient.colorAtPosition(1).redF(), 0.3, 1e-4);
    // Half and half at the first stop's midpoint, 95% of the way to the next stop...
    EXPECT_NEAR(gradient.colorAtPosition(0.475).redF(), 0.075, 1e-3);
    // ...so halfway there it is still nearly black, where a linear blend would be 0.075.
    EXPECT_LT(gradient.colorAtPosition(0.25).redF(), 0.001);
    // The second stop keeps the default midpoint: linear.
    EXPECT_NEAR(gradient.colorAtPosition(0.75).redF(), 0.225, 1e-3);
    EXPECT_NEAR(gradient.colorAtPosition(-1).redF(), 0, 1e-4);
    EXPECT_NEAR(gradient.colorAtPosition(2).redF(), 0.3, 1e-4);

    const QKGradient early({{white(0), 0, 0.2}, {white(1), 1}});
    EXPECT_NEAR(early.colorAtPosition(0.2).redF(), 0.5, 1e-3);
    EXPECT_GT(early.colorAtPosition(0.1).redF(), 0.3);
}

TEST(QKGradient, stopsAreOrderedAndClampedAndEmptyGradientsPaintNothing)
{
    const QKGradient gradient({{Qt::red, 1.5}, {Qt::blue, -0.5}, {Qt::green, 0.5}});
    const QList<QKGradientStop> stops = gradient.stops();
    ASSERT_EQ(stops.size(), 3);
    EXPECT_EQ(stops[0].color, QColor(Qt::blue));
    EXPECT_EQ(stops[0].position, 0);
    EXPECT_EQ(stops[2].color, QColor(Qt::red));
    EXPECT_EQ(stops[2].position, 1);
    EXPECT_EQ(QKGradient({{Qt::red, 0.3}}).colorAtPosition(0.9), QColor(Qt::red));

    EXPECT_FALSE(QKGradient().colorAtPosition(0.5).isValid());
    const QImage image = paint(QSize(10, 10), [](QPainter *painter) {
        QKGradient().fillRect(painter, QRectF(0, 0, 10, 10), 90);
    });
    EXPECT_EQ(qAlpha(image.pixel(5, 5)), 0);
}

TEST(QKGradient, ninetyDegreesPaintsFromBottomToTop)
{
    const QKGradient gradient = panelGradient();
    const int height = 200;
    const QImage image = paint(QSize(20, height), [&](QPainter *painter) {
        gradient.fillRect(painter, QRectF(0, 0, 20, height), 90);
    });
    EXPECT_LE(grey(image, 10, height - 1), 1);
    EXPECT_NEAR(grey(image, 10, 0), 76, 1);
    EXPECT_LE(grey(image, 10, 150), 1);       // a quarter of the way up
    EXPECT_NEAR(grey(image, 10, 105), 19, 2); // the midpoint, 47.5% up
    EXPECT_NEAR(grey(image, 10, 100), 36, 2); // just below the middle stop
    for (int y = 0; y < height; ++y) {
        const qreal position = (height - y - 0.5) / height;
        EXPECT_NEAR(grey(image, 10, y), expectedGrey(gradient, position), 2) << "row " << y;
        EXPECT_EQ(grey(image, 0, y), grey(image, 19, y)) << "row " << y;
    }
}

TEST(QKGradient, anglesFollowTheUpwardYAxis)
{
    const QKGradient gradient({{Qt::black, 0}, {Qt::white, 1}});
    const QRectF rect(0, 0, 300, 100);
    const auto painted = [&](qreal angle) {
        return paint(QSize(300, 100),
                     [&](QPainter *painter) { gradient.fillRect(painter, rect, angle); });
    };
    const QImage right = painted(0);
    EXPECT_LE(grey(right, 0, 50), 1);
    EXPECT_GE(grey(right, 299, 50), 254);
    const QImage left = painted(180);
    EXPECT_GE(grey(left, 0, 50), 254);
    EXPECT_LE(grey(left, 299, 50), 1);
    const QImage down = painted(270);
    EXPECT_LE(grey(down, 150, 0), 2);
    EXPECT_GE(grey(down, 150, 99), 253);
    // Diagonally the gradient ends exactly on the far corners.
    const QImage diagonal = painted(45);
    EXPECT_LE(grey(diagonal, 0, 99), 2);
    EXPECT_GE(grey(diagonal, 299, 0), 253);
    EXPECT_NEAR(grey(diagonal, 150, 50), 128, 2);
}

TEST(QKGradient, fillPathPaintsOnlyInsideOverThePathsBounds)
{
    const QKGradient gradient = panelGradient();
    QPainterPath path;
    path.addEllipse(QRectF(50, 50, 100, 100));
    const QImage image =
        paint(QSize(200, 200), [&](QPainter *painter) { gradient.fillPath(painter, path, 90); });
    EXPECT_EQ(qAlpha(image.pixel(55, 55)), 0);
    EXPECT_EQ(qAlpha(image.pixel(10, 190)), 0);
    EXPECT_EQ(qAlpha(image.pixel(100, 100)), 255);
    EXPECT_NEAR(grey(image, 100, 51), expectedGrey(gradient, 0.985), 2);
    EXPECT_LE(grey(image, 100, 148), 1);
    EXPECT_NEAR(grey(image, 100, 75), expectedGrey(gradient, 0.745), 2);
}
