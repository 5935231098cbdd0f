#pragma once

#include <functional>
#include <utility>

#include <QAbstractEventDispatcher>
#include <QEvent>
#include <QObject>
#include <QStringList>
#include <QWidget>

/// What happens to widgets while a handler runs, in its order. The handler is called straight,
/// not by a click: so every turn of the event loop in the list is one that the handler took.
class EventWatch : public QObject
{
public:
    EventWatch()
    {
        connect(
            QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, this,
            [this] { note(QStringLiteral("turn")); });
    }

    /// Notes the widget's paints ("paint NAME") and changes of its enabled state ("enabled NAME"
    /// or "disabled NAME").
    void watch(QWidget* widget) { widget->installEventFilter(this); }
    /// Calls a function at each of these changes as well, before the widget sees it.
    void atChange(std::function<void(const QString& change)> function) { m_atChange = std::move(function); }
    void note(const QString& what)
    {
        m_happened.append(what);
        if (m_atChange)
            m_atChange(what);
    }

    const QStringList& happened() const { return m_happened; }
    /// What happened before and after the first occurrence of an entry; both lack it. Without it
    /// everything is before.
    QStringList before(const QString& what) const { return m_happened.mid(0, m_happened.indexOf(what)); }
    QStringList after(const QString& what) const
    {
        const int at = m_happened.indexOf(what);
        return at < 0 ? QStringList() : m_happened.mid(at + 1);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const auto* widget = static_cast<QWidget*>(watched);
        if (event->type() == QEvent::Paint)
            note("paint " + widget->objectName());
        else if (event->type() == QEvent::EnabledChange)
            note((widget->isEnabled() ? "enabled " : "disabled ") + widget->objectName());
        return false;
    }

private:
    QStringList m_happened;
    std::function<void(const QString&)> m_atChange;
};
