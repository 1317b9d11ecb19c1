// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QColor>
#include <QtWidgets/QWidget>

#include <vector>

namespace buslink {

/// Values of the last seconds as lines, one for each name, with the newest at the right.
class SecondsPlot : public QWidget
{
    Q_OBJECT

public:
    struct Line
    {
        QString name;
        std::vector<double> values; ///< One a second, the newest last.
    };

    /// `title` tells what is shown, with its unit; `seconds` is how far the time axis goes back.
    SecondsPlot(const QString &title, int seconds);

    void setLines(std::vector<Line> lines);
    const std::vector<Line> &lines() const { return mLines; }
    /// Where a value lies that is so many seconds old.
    QPointF place(int age, double value) const;
    /// The end of the value axis: 1, 2 or 5 with zeros, at least 10, and no value is above it.
    double valueMax() const { return mValueMax; }
    /// The color of a line, by its number.
    static QColor lineColor(std::size_t number);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QRectF area() const;
    void paintAxes(QPainter &painter) const;
    void paintLegend(QPainter &painter) const;

    const QString mTitle;
    const int mSeconds;
    std::vector<Line> mLines;
    double mValueMax = 10;
};

} // namespace buslink
