#pragma once

#include <QFrame>

/// Still image of the calibration target with its measurement points.
class QC_measure : public QFrame
{
    Q_OBJECT

public:
    explicit QC_measure(QWidget* parent = nullptr) : QFrame(parent) {}
};
