// The user's settings (user defaults), with the values Trovara registers as
// their defaults. Stored with QSettings in ~/.config/Trovara/Trovara.conf.
//
// A key the user never set answers its registered default. A change made
// through the shared defaults is announced by the DefaultsController.
// Meant for the main thread.
#pragma once

#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>

class QSettings;

namespace trovara::model {

// Announces changes of the shared defaults, under the key path
// "values.KEY" (as a binding to the shared defaults controller names it).
// Outlives every replacement of the shared defaults, so observers stay
// connected. A set that leaves the value as it was announces nothing.
class DefaultsController final : public QObject {
    Q_OBJECT

public:
    static DefaultsController& shared();

signals:
    void valueChanged(const QString& keyPath);
};

class Defaults {
public:
    static Defaults& shared();
    // Points the shared defaults at another file (tests); an empty name goes
    // back to the user's file. Registered values are kept.
    static void resetSharedForTesting(const QString& fileName = {});

    explicit Defaults(const QString& fileName);
    ~Defaults();

    QVariant value(const QString& key) const;
    bool boolValue(const QString& key) const;
    int intValue(const QString& key) const;
    double doubleValue(const QString& key) const;
    QString stringValue(const QString& key) const;

    void setValue(const QString& key, const QVariant& value);
    void removeValue(const QString& key);
    bool hasUserValue(const QString& key) const;
    void synchronize();

    void registerDefaults(const QVariantMap& defaults);
    const QVariantMap& registeredDefaults() const { return m_registered; }

    QString fileName() const;
    static QString userFileName();

    // The defaults Trovara registers at start-up.
    static QVariantMap factoryDefaults();

private:
    // Tells the DefaultsController when this is the shared defaults and the
    // key's value differs from `before`.
    void announceChange(const QString& key, const QVariant& before) const;

    std::unique_ptr<QSettings> m_settings;
    QVariantMap m_registered;
};

}  // namespace trovara::model
