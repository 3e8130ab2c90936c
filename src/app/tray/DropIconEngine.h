#pragma once

#include <QIconEngine>

// Quillmar's drop, drawn at any size with Qt's painter: the same shapes and colours as the
// installed quillmar.svg, without loading Qt's SVG plugin (and its library) at start-up for
// one small icon.
class DropIconEngine : public QIconEngine {
public:
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override;
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override;
    QIconEngine* clone() const override;
    QString key() const override;
};
