#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A real browser, without a window and without a network, for a page from the disk.
class Browser
{
public:
    /// Whether there is one on this machine, with the tools that read what it prints.
    static bool isThere();

    /// The page's elements after its scripts have run where it may be this wide. Two more
    /// attributes of its root: data-right, the rightmost pixel that any element reaches, and
    /// data-window, the width that it has. Empty if the browser does not do it.
    static QByteArray elementsOf(const QString& page, int width_px);
    /// The text of the page's printed pages; empty if the browser does not do it.
    static QStringList printedPages(const QString& page);
};
