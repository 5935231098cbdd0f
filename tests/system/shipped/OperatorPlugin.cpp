#include "OperatorPlugin.h"

#include <memory>

#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QDialog>
#include <QJsonDocument>
#include <QMainWindow>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include "simulator/operator/Operator.h"

namespace {

QMainWindow* mainWindow()
{
    for (QWidget* top : QApplication::topLevelWidgets())
        if (auto* const window = qobject_cast<QMainWindow*>(top))
            return window;
    return nullptr;
}

QJsonObject outcome(bool done, const char* otherwise)
{
    return done ? QJsonObject() : QJsonObject{{"error", otherwise}};
}

/// Takes requests, one JSON object a line, from the FIFO $OPERATOR_REQUESTS and answers each
/// with one on $OPERATOR_ANSWERS, also while a message box is open: what the operator at the
/// program's window did or saw, or {"error": ...} when it cannot be done.
class RequestedOperator : public QObject
{
public:
    RequestedOperator()
        : m_requests(::open(qgetenv("OPERATOR_REQUESTS").constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC)),
          m_answers(::open(qgetenv("OPERATOR_ANSWERS").constData(), O_RDWR | O_CLOEXEC)),
          m_notifier(m_requests, QSocketNotifier::Read)
    {
        connect(
            &m_notifier, &QSocketNotifier::activated, this, [this] { take(); });
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
                QTimer::singleShot(0, this, [this, request] { carryOut(request); });
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

    /// Whether there is a window, and the operator at it.
    bool sitDown()
    {
        QMainWindow* const window = mainWindow();
        if (window == nullptr || !window->isVisible())
            return false;
        if (window != m_window) {
            m_window = window;
            m_operator = std::make_unique<Operator>(*window, QString(), OperatorPace::AtOnce);
            m_operator->boxWatcher().stop(); // the requests answer the boxes
        }
        return true;
    }

    QJsonObject carryOut(const QJsonObject& request)
    {
        if (!sitDown())
            return outcome(false, "no window");
        const QString action = request["do"].toString();
        auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (action == "box")
            return dialog ? boxToJson(recordOf(*dialog, *m_window)) : QJsonObject();
        if (action == "answer")
            return outcome(dialog && pressButton(*dialog, request["button"].toString()), "no button");
        if (action == "file")
            return outcome(dialog && giveFileName(*dialog, request["path"].toString()), "no file dialog");
        return atTheWindow(action, request);
    }

    QJsonObject atTheWindow(const QString& action, const QJsonObject& request)
    {
        Operator& user = *m_operator;
        const QString name = request.contains("name") ? request["name"].toString() : m_window->objectName();
        const QPoint place(request["x"].toInt(), request["y"].toInt());
        if (action == "look")
            return {{"enabled", user.isEnabled(name)},
                    {"visible", user.isShown(name)},
                    {"checked", user.isChecked(name)},
                    {"style", user.style(name)},
                    {"text", user.text(name)}};
        if (action == "picture")
            return outcome(user.screen().save(request["path"].toString()), "no picture");
        if (action == "tab")
            return outcome(user.openTab(name, request["value"].toInt()), "no such tab");
        if (action == "type")
            return outcome(user.type(name, request["text"].toString(), request["enter"].toBool()), "no edit");
        if (action == "click")
            return outcome(user.click(name), "not pressed");
        if (action == "key")
            user.pressKey(Qt::Key(request["key"].toInt()));
        else if (action == "quit")
            QCoreApplication::quit();
        else if (action == "press")
            user.pressAt(place);
        else if (action == "move")
            user.moveTo(place);
        else if (action == "release")
            user.releaseAt(place);
        else
            return outcome(false, "no such action");
        return {};
    }

    int m_requests;
    int m_answers;
    QSocketNotifier m_notifier;
    QByteArray m_pending;
    QPointer<QMainWindow> m_window;
    std::unique_ptr<Operator> m_operator;
};

} // namespace

QObject* OperatorPlugin::create(const QString&, const QString&)
{
    return new RequestedOperator;
}
