// SPDX-License-Identifier: MIT
#include "busdesk/seconds_plot.h"

#include <QtGui/QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace buslink {

namespace {

constexpr int LabelStep = 15; // seconds between two labels of the time axis

QString valueText(double value)
{
    return QString::number(value, 'f', value == std::floor(value) ? 0 : 1);
}

double axisEnd(double value)
{
    double decade = 10;
    while (decade * 10 < value)
        decade *= 10;
    for (const double step : {1.0, 2.0, 5.0}) {
        if (decade * step >= value)
            return decade * step;
    }
    return decade * 10;
}

} // namespace

SecondsPlot::SecondsPlot(const QString &title, int seconds) : mTitle(title), mSeconds(seconds)
{
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    setFont(small);
}

QColor SecondsPlot::lineColor(std::size_t number)
{
    static constexpr std::array<QRgb, 6> colors{0x1565C0, 0xEF6C00, 0x2E7D32, 0x8E24AA, 0xC62828, 0x00838F};
    return QColor(colors.at(number % colors.size()));
}

void SecondsPlot::setLines(std::vector<Line> lines)
{
    mLines = std::move(lines);
    double highest = 0;
    for (const Line &line : mLines) {
        for (const double value : line.values)
            highest = std::max(highest, value);
    }
    mValueMax = axisEnd(highest);
    update();
}

QRectF SecondsPlot::area() const
{
    const QFontMetricsF metrics(font());
    const double left = metrics.horizontalAdvance(QStringLiteral("100,000 "));
    const double right = metrics.horizontalAdvance(QStringLiteral("0")) + 4;
    const double line = metrics.height();
    return QRectF(rect()).adjusted(left, line + 6, -right, -line - 4);
}

QPointF SecondsPlot::place(int age, double value) const
{
    const QRectF inside = area();
    return {inside.right() - inside.width() * age / mSeconds, inside.bottom() - inside.height() * value / mValueMax};
}

QSize SecondsPlot::sizeHint() const
{
    return {400, 105};
}

QSize SecondsPlot::minimumSizeHint() const
{
    return {260, 80};
}

void SecondsPlot::paintAxes(QPainter &painter) const
{
    const QRectF inside = area();
    const double line = QFontMetricsF(font()).height();
    painter.fillRect(inside, palette().base());
    for (const double value : {0.0, mValueMax / 2, mValueMax}) {
        const double y = place(0, value).y();
        painter.setPen(QColor(0xE0, 0xE0, 0xE0));
        painter.drawLine(QPointF(inside.left(), y), QPointF(inside.right(), y));
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(QRectF(0, y - line / 2, inside.left() - 4, line), Qt::AlignRight | Qt::AlignVCenter,
                         valueText(value));
    }
    for (int age = mSeconds; age >= 0; age -= LabelStep) {
        const double x = place(age, 0).x();
        painter.setPen(QColor(0xE0, 0xE0, 0xE0));
        painter.drawLine(QPointF(x, inside.top()), QPointF(x, inside.bottom()));
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(QRectF(x - 40, inside.bottom() + 2, 80, line), Qt::AlignCenter,
                         age == 0 ? QStringLiteral("0") : tr("-%1 s").arg(age));
    }
    painter.setPen(QColor(0x9E, 0x9E, 0x9E));
    painter.drawRect(inside);
}

// With the newest value of each, from the right.
void SecondsPlot::paintLegend(QPainter &painter) const
{
    const QFontMetricsF metrics(font());
    const QRectF inside = area();
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(QRectF(inside.left(), 0, inside.width(), metrics.height() + 4), Qt::AlignLeft | Qt::AlignVCenter,
                     mTitle);
    double right = inside.right();
    const double free = inside.left() + metrics.horizontalAdvance(mTitle) + 12;
    for (std::size_t i = mLines.size(); i > 0; --i) {
        const Line &line = mLines[i - 1];
        const QString text =
            line.values.empty() ? line.name : line.name + QStringLiteral(": ") + valueText(line.values.back());
        const double width = metrics.horizontalAdvance(text);
        if (right - width < free)
            return;
        painter.setPen(lineColor(i - 1));
        painter.drawText(QRectF(right - width, 0, width + 1, metrics.height() + 4), Qt::AlignVCenter, text);
        right -= width + 12;
    }
}

void SecondsPlot::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    paintAxes(painter);
    paintLegend(painter);
    painter.setRenderHint(QPainter::Antialiasing);
    for (std::size_t i = 0; i < mLines.size(); ++i) {
        const std::vector<double> &values = mLines[i].values;
        QPolygonF points;
        for (std::size_t k = 0; k < values.size(); ++k)
            points.append(place(static_cast<int>(values.size() - 1 - k), values[k]));
        painter.setPen(QPen(lineColor(i), 2));
        painter.drawPolyline(points);
    }
}

} // namespace buslink
