#pragma once

#include <QGenericPlugin>

/// Loaded into the shipped program with QT_QPA_GENERIC_PLUGINS=operator: lets a test see and
/// press what is on the program's screen. It knows Qt and object names, nothing of the program.
class OperatorPlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "OperatorPlugin.json")

public:
    QObject* create(const QString& key, const QString& arguments) override;
};
