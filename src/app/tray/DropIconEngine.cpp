#include "app/tray/DropIconEngine.h"

#include <QPainter>
#include <QPainterPath>

namespace {

// The drawing's own square, as in quillmar.svg's viewBox; the numbers below are the SVG's.
constexpr qreal side = 64;

// A drop: from its tip down one side, round at the bottom around (32, 41), up the other side.
QPainterPath drop(QPointF tip, QPointF tipControl, qreal radius, qreal shoulderY) {
    const qreal left = 32 - radius;
    const qreal right = 32 + radius;
    QPainterPath path(tip);
    path.cubicTo(tipControl, QPointF(left, shoulderY), QPointF(left, 41));
    path.arcTo(QRectF(left, 41 - radius, 2 * radius, 2 * radius), 180, 180);
    path.cubicTo(QPointF(right, shoulderY), QPointF(2 * tip.x() - tipControl.x(), tipControl.y()),
                 tip);
    path.closeSubpath();
    return path;
}

} // namespace

void DropIconEngine::paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(rect.topLeft());
    painter->scale(rect.width() / side, rect.height() / side);

    // Blue body with a dark rim, so that it reads on light panels.
    QPen rim(QColor(0x0b, 0x3f, 0x85), 3);
    rim.setJoinStyle(Qt::RoundJoin);
    painter->setPen(rim);
    painter->setBrush(QColor(0x1f, 0x6f, 0xd6));
    painter->drawPath(drop(QPointF(32, 5), QPointF(32, 5), 20, 29));

    // A light rim inside, so that it reads on dark ones.
    painter->setBrush(Qt::NoBrush);
    painter->setPen(QPen(QColor(255, 255, 255, 140), 1.5));
    painter->drawPath(drop(QPointF(32, 9.5), QPointF(28, 14.5), 16.5, 31));

    // The shine.
    QPen shine(QColor(255, 255, 255, 217), 3.5);
    shine.setCapStyle(Qt::RoundCap);
    painter->setPen(shine);
    // The SVG's arc of radius 10 from (22, 42) to (30, 51), around the centre it implies.
    const QPointF centre(31.9676, 41.1955);
    QPainterPath stroke(QPointF(22, 42));
    stroke.arcTo(QRectF(centre - QPointF(10, 10), QSizeF(20, 20)), 184.615, 74.038);
    painter->drawPath(stroke);
    painter->restore();
}

QPixmap DropIconEngine::pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) {
    // Qt's default leaves the pixmap's background as it found it.
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    paint(&painter, QRect(QPoint(0, 0), size), mode, state);
    return pixmap;
}

QIconEngine* DropIconEngine::clone() const {
    return new DropIconEngine;
}

QString DropIconEngine::key() const {
    return QStringLiteral("DropIconEngine");
}
