#pragma once

#include <memory>

#include <QWidget>

class Ui_DebugMessage;

/// Console of 640 x 480 pixels that shows the step messages of the application.
/// Its text grows until "Clear" is pressed, also while hidden. GUI thread.
class DebugMessage : public QWidget
{
    Q_OBJECT

public:
    explicit DebugMessage(QWidget* parent = nullptr);
    ~DebugMessage() override;

    /// Inserts the text, unchanged, at the cursor of the text area.
    void insertPlainText(const QString& text);
    /// Scrolls the text area to its cursor.
    void ensureCursorVisible();

private slots:
    void on_BUTTON_CLEAR_clicked();

private:
    std::unique_ptr<Ui_DebugMessage> m_ui;
};
