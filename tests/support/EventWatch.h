#pragma once

#include <functional>
#include <initializer_list>
#include <utility>

#include <QAbstractEventDispatcher>
#include <QEvent>
#include <QObject>
#include <QStringList>
#include <QWidget>

/// What happens to widgets while a handler runs, in its order: paints ("paint NAME") and changes
/// of the enabled state ("enabled NAME", "disabled NAME"). Where the handler is called straight,
/// not by a click, every turn of the event loop in the list ("turn") is one that the handler took.
class EventWatch : public QObject
{
public:
    /// Watches these widgets, and the event loop.
    explicit EventWatch(std::initializer_list<QWidget*> widgets)
    {
        for (QWidget* widget : widgets)
            widget->installEventFilter(this);
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, this,
                [this] { note(QStringLiteral("turn")); });
    }

    /// Calls a function at each of these changes as well, before the widget sees it.
    void atChange(std::function<void(const QString& change)> function) { m_atChange = std::move(function); }
    void note(const QString& what)
    {
        m_happened.append(what);
        if (m_atChange)
            m_atChange(what);
    }

    const QStringList& happened() const { return m_happened; }
    /// The changes between enabled and disabled alone.
    QStringList enabledChanges() const { return m_happened.filter(QStringLiteral("abled ")); }
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
