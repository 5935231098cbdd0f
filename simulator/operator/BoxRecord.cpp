#include "simulator/operator/BoxRecord.h"

#include <QAbstractButton>
#include <QDir>
#include <QFileDialog>
#include <QJsonArray>
#include <QLineEdit>
#include <QMetaEnum>
#include <QTabWidget>
#include <QtTest>

#include "platform/InstrumentPath.h"

namespace {

QString captionOf(const QAbstractButton& button)
{
    return button.text().remove(QLatin1Char('&'));
}

QStringList listFrom(const QJsonValue& value)
{
    return value.toVariant().toStringList();
}

} // namespace

SeenBox recordOf(const QDialog& dialog, const QWidget& window)
{
    SeenBox record;
    record.title = dialog.windowTitle();
    record.windowWasEnabled = window.isEnabled();
    const auto* tabs = window.findChild<QTabWidget*>();
    record.controlsWereEnabled = tabs != nullptr && tabs->isEnabled();
    if (const auto* box = qobject_cast<const QMessageBox*>(&dialog)) {
        record.text = box->text();
        record.icon = box->icon();
        record.hadDefaultButton = box->defaultButton() != nullptr;
        for (const QAbstractButton* button : box->buttons())
            record.buttons.append(captionOf(*button));
    } else if (const auto* files = qobject_cast<const QFileDialog*>(&dialog)) {
        record.isFileDialog = true;
        record.text = fixedPathOf(files->directory().path());
        record.saves = files->acceptMode() == QFileDialog::AcceptSave;
        record.filters = files->nameFilters();
    }
    return record;
}

QJsonObject boxToJson(const SeenBox& box)
{
    return {{"title", box.title},
            {"text", box.text},
            {"buttons", QJsonArray::fromStringList(box.buttons)},
            {"answer", box.answer},
            {"expected", box.expected},
            {"icon", QMetaEnum::fromType<QMessageBox::Icon>().valueToKey(box.icon)},
            {"hadDefaultButton", box.hadDefaultButton},
            {"windowWasEnabled", box.windowWasEnabled},
            {"controlsWereEnabled", box.controlsWereEnabled},
            {"isFileDialog", box.isFileDialog},
            {"saves", box.saves},
            {"filters", QJsonArray::fromStringList(box.filters)}};
}

SeenBox boxFromJson(const QJsonObject& object)
{
    const QByteArray icon = object["icon"].toString().toLatin1();
    SeenBox box;
    box.title = object["title"].toString();
    box.text = object["text"].toString();
    box.buttons = listFrom(object["buttons"]);
    box.answer = object["answer"].toString();
    box.expected = object["expected"].toBool();
    if (!icon.isEmpty())
        box.icon = QMessageBox::Icon(QMetaEnum::fromType<QMessageBox::Icon>().keyToValue(icon));
    box.hadDefaultButton = object["hadDefaultButton"].toBool();
    box.windowWasEnabled = object["windowWasEnabled"].toBool();
    box.controlsWereEnabled = object["controlsWereEnabled"].toBool();
    box.isFileDialog = object["isFileDialog"].toBool();
    box.saves = object["saves"].toBool();
    box.filters = listFrom(object["filters"]);
    return box;
}

bool pressButton(QDialog& dialog, const QString& caption)
{
    for (QAbstractButton* button : dialog.findChildren<QAbstractButton*>()) {
        if (!button->isVisible() || captionOf(*button) != caption)
            continue;
        QTest::mouseClick(dialog.windowHandle(), Qt::LeftButton, {},
                          button->mapTo(&dialog, button->rect().center()));
        return true;
    }
    return false;
}

// Typing would open a list of matching names over the dialog.
bool giveFileName(QDialog& dialog, const QString& name)
{
    auto* edit = dialog.findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
    if (edit == nullptr)
        return false;
    edit->setText(name);
    return pressButton(dialog, QStringLiteral("Save"));
}
