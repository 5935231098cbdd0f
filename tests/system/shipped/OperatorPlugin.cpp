#include "OperatorPlugin.h"

#include <fcntl.h>
#include <unistd.h>

#include <QtTest/qtestkeyboard.h>
#include <QtTest/qtestmouse.h>
#include <QtWidgets>

namespace {

QMainWindow* mainWindow()
{
    for (QWidget* top : QApplication::topLevelWidgets())
        if (auto* const window = qobject_cast<QMainWindow*>(top))
            return window;
    return nullptr;
}

QWidget* named(const QString& name)
{
    QMainWindow* const window = mainWindow();
    if (!window || window->objectName() == name)
        return window;
    return window->findChild<QWidget*>(name);
}

/// The middle of what takes a press: a check box is pressed on its mark.
QPoint pressPoint(const QWidget* widget)
{
    constexpr int markMiddle_px = 8;
    QPoint middle = widget->rect().center();
    if (qobject_cast<const QCheckBox*>(widget))
        middle.setX(markMiddle_px);
    return widget->mapTo(widget->window(), middle);
}

QJsonObject look(const QWidget* widget)
{
    QJsonObject seen{
        {"enabled", widget->isEnabled()}, {"visible", widget->isVisible()}, {"style", widget->styleSheet()}};
    for (const char* property : {"text", "value", "checked"})
        if (const QVariant value = widget->property(property); value.isValid())
            seen[property] = QJsonValue::fromVariant(value);
    if (const auto* const pages = qobject_cast<const QPlainTextEdit*>(widget))
        seen["text"] = pages->toPlainText();
    return seen;
}

QJsonObject lookAtBox(const QWidget* dialog)
{
    QJsonObject seen{{"title", dialog->windowTitle()}};
    if (const auto* const box = qobject_cast<const QMessageBox*>(dialog)) {
        QStringList buttons;
        for (const QAbstractButton* button : box->buttons())
            buttons.append(button->text().remove('&'));
        buttons.sort();
        constexpr const char* icons[] = {"none", "information", "warning", "critical", "question"};
        seen["title"] = QString("%1: %2").arg(icons[box->icon()], box->windowTitle());
        seen["text"] = box->text();
        seen["buttons"] = buttons.join(' ');
    } else if (const auto* const files = qobject_cast<const QFileDialog*>(dialog)) {
        seen["folder"] = files->directory().path();
        seen["filter"] = files->nameFilters().join(' ');
    }
    return seen;
}

bool press(const QWidget* dialog, const QString& text)
{
    for (QAbstractButton* button : dialog->findChildren<QAbstractButton*>())
        if (button->isVisible() && button->text().remove('&') == text) {
            button->click();
            return true;
        }
    return false;
}

/// What one request asks for; {"error": ...} when it cannot be done.
QJsonObject carryOut(const QJsonObject& request)
{
    const QString action = request["do"].toString();
    QWidget* const dialog = QApplication::activeModalWidget();
    if (action == "box")
        return dialog ? lookAtBox(dialog) : QJsonObject();
    if (action == "answer")
        return dialog && press(dialog, request["button"].toString()) ? QJsonObject()
                                                                     : QJsonObject{{"error", "no button"}};
    if (action == "file") {
        auto* const name = dialog ? dialog->findChild<QLineEdit*>("fileNameEdit") : nullptr;
        if (!name)
            return {{"error", "no file dialog"}};
        name->setText(request["path"].toString());
        return press(dialog, "Save") ? QJsonObject() : QJsonObject{{"error", "no button"}};
    }

    QMainWindow* const window = mainWindow();
    QWidget* const widget = request.contains("name") ? named(request["name"].toString()) : window;
    if (!window || !window->isVisible() || !widget)
        return {{"error", "no such widget"}};
    if (action == "look")
        return look(widget);
    if (action == "picture") {
        const QPixmap screen = window->screen()->grabWindow(window->winId());
        return screen.save(request["path"].toString()) ? QJsonObject() : QJsonObject{{"error", "no picture"}};
    }
    if (action == "tab") {
        static_cast<QTabWidget*>(widget)->setCurrentIndex(request["value"].toInt());
        return {};
    }
    if (action == "value") {
        static_cast<QSpinBox*>(widget)->setValue(request["value"].toInt());
        return {};
    }
    if (action == "type") {
        widget->setFocus();
        QTest::keyClick(widget, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(widget, Qt::Key_Delete);
        QTest::keyClicks(widget, request["text"].toString());
        if (request["enter"].toBool())
            QTest::keyClick(widget, Qt::Key_Return);
        return {};
    }
    if (action == "key") {
        QTest::keyClick(window->windowHandle(), Qt::Key(request["key"].toInt()));
        return {};
    }
    const QPoint point =
        request.contains("name") ? pressPoint(widget) : QPoint(request["x"].toInt(), request["y"].toInt());
    if (action == "press" || action == "click")
        QTest::mousePress(window->windowHandle(), Qt::LeftButton, {}, point);
    if (action == "move")
        QTest::mouseMove(window->windowHandle(), point);
    if (action == "release" || action == "click")
        QTest::mouseRelease(window->windowHandle(), Qt::LeftButton, {}, point);
    return {};
}

/// Takes requests, one JSON object a line, from the FIFO $OPERATOR_REQUESTS and answers each
/// with one on $OPERATOR_ANSWERS, also while a message box is open.
class Operator : public QObject
{
public:
    Operator()
        : m_requests(::open(qgetenv("OPERATOR_REQUESTS").constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC)),
          m_answers(::open(qgetenv("OPERATOR_ANSWERS").constData(), O_RDWR | O_CLOEXEC)),
          m_notifier(m_requests, QSocketNotifier::Read)
    {
        connect(&m_notifier, &QSocketNotifier::activated, this, [this] { take(); });
    }

private:
    void take()
    {
        char chunk[4096];
        for (ssize_t count; (count = ::read(m_requests, chunk, sizeof chunk)) > 0;)
            m_pending.append(chunk, int(count));
        for (int end; (end = m_pending.indexOf('\n')) >= 0;) {
            const QJsonObject request = QJsonDocument::fromJson(m_pending.left(end)).object();
            m_pending.remove(0, end + 1);
            if (request["later"].toBool()) {
                // What comes to a message box does not return before that is answered.
                answer({});
                QTimer::singleShot(0, this, [request] { carryOut(request); });
            } else {
                answer(carryOut(request));
            }
        }
    }

    void answer(const QJsonObject& answer)
    {
        const QByteArray line = QJsonDocument(answer).toJson(QJsonDocument::Compact) + '\n';
        if (::write(m_answers, line.constData(), std::size_t(line.size())) != line.size())
            qFatal("operator: an answer is lost");
    }

    int m_requests;
    int m_answers;
    QSocketNotifier m_notifier;
    QByteArray m_pending;
};

} // namespace

QObject* OperatorPlugin::create(const QString&, const QString&)
{
    return new Operator;
}
