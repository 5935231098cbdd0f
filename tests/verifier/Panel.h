#pragma once

#include <QMainWindow>
#include <QPainter>
#include <QRect>

#include "PanelSetup.h"
#include "ui_ORLA_II_Plus_Verifier.h"

const QRect kWindow(0, 0, 800, 480);
const QRect kLiveView(0, 0, 640, 480);
const QColor kLivePicture(255, 0, 255);
constexpr int kPages = 3;

/// The form on a window that paints its live view, as the program does, in one colour.
class Panel : public QMainWindow
{
public:
    Panel()
    {
        Q_INIT_RESOURCE(GUI);
        setUpFont();
        ui.setupUi(this);
        setFixedSize(kWindow.size());
        ui.QC_MEASURE->hide();
    }

    template <class Widget = QWidget>
    Widget* get(const QString& name) const
    {
        return findChild<Widget*>(name);
    }

    QList<QPushButton*> buttons() const { return centralWidget()->findChildren<QPushButton*>(); }

    Ui_ORLA_II_Plus_Verifier ui;

protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(kLiveView, kLivePicture); }
};
