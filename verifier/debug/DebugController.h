#pragma once

#include <memory>

#include <QWidget>

class Ui_DebugController;

/// Console of 640 x 480 pixels that shows the lines of the serial link as they were sent and received.
/// Its text grows until "Clear" is pressed, also while hidden. GUI thread.
class DebugController : public QWidget
{
    Q_OBJECT

public:
    explicit DebugController(QWidget* parent = nullptr);
    ~DebugController() override;

    /// Inserts the text, unchanged, at the cursor of the text area.
    void insertPlainText(const QString& text);
    /// Scrolls the text area to its cursor.
    void ensureCursorVisible();

private slots:
    void on_BUTTON_CLEAR_clicked();

private:
    std::unique_ptr<Ui_DebugController> m_ui;
};
