#pragma once

#include <QLabel>
#include <QStringList>

/// The band at the top of the live view that says what is missing; hidden when there is
/// nothing to say.
///
/// It is opaque: frames are not painted below it, and a new frame does not paint it again. It
/// is transparent for the mouse: the view can be dragged through it. GUI thread.
class LiveViewNotice : public QLabel
{
    Q_OBJECT

public:
    /// At the top of the parent, width_px wide, as high as its text; hidden.
    LiveViewNotice(int width_px, QWidget* parent);

    /// Shows the lines, one below the other, or hides the band when there are none. The same
    /// lines again change nothing.
    void showLines(const QStringList& lines);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QRect textRect() const;
};
