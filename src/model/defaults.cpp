#include "model/defaults.h"

#include "model/preferred_location.h"

#include <QSettings>
#include <QStandardPaths>

namespace trovara::model {

namespace {

std::unique_ptr<Defaults>& sharedInstance()
{
    static std::unique_ptr<Defaults> instance;
    return instance;
}

QVariantMap hotKey(int keyCode, int modifiers)
{
    return {{QStringLiteral("keyCode"), keyCode}, {QStringLiteral("modifiers"), modifiers}};
}

}  // namespace

QVariantMap Defaults::factoryDefaults()
{
    return {
        {QStringLiteral("accentColorNumber"), 0},
        {QStringLiteral("resultTableRowHeight"), 17.0},
        {QStringLiteral("gridZoomValue"), 0.5},
        {QStringLiteral("quitOnCloseOfLastWindow"), false},
        {QStringLiteral("listTextContentFirst"), false},
        {QStringLiteral("enableGlobalHotKeys"), true},
        {QStringLiteral("enableGlobalMenuItem"), true},
        {QStringLiteral("showResultsImmediately"), true},
        {QStringLiteral("showIconsInResults"), true},
        {QStringLiteral("enableTabViewAnimations"), true},
        {QStringLiteral("includeInvisibleFiles"), false},
        // Right arrow with command+control, and with command+option+control.
        {QStringLiteral("bringToFrontHotKey"), hotKey(124, 4352)},
        {QStringLiteral("bringToFrontAndCreateHotKey"), hotKey(124, 6400)},
        {QStringLiteral("preferredLocations"), PreferredLocation::archive(PreferredLocation::factoryLocations())},
        {QStringLiteral("NSNavLastUserSetHideExtensionButtonState"), true},
    };
}

Defaults& Defaults::shared()
{
    if (!sharedInstance()) {
        sharedInstance() = std::make_unique<Defaults>(userFileName());
        sharedInstance()->registerDefaults(factoryDefaults());
    }
    return *sharedInstance();
}

void Defaults::resetSharedForTesting(const QString& fileName)
{
    QVariantMap registered = sharedInstance() ? sharedInstance()->m_registered : factoryDefaults();
    sharedInstance() = std::make_unique<Defaults>(fileName.isEmpty() ? userFileName() : fileName);
    sharedInstance()->registerDefaults(registered);
}

QString Defaults::userFileName()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           + QStringLiteral("/Trovara/Trovara.conf");
}

Defaults::Defaults(const QString& fileName)
    : m_settings(std::make_unique<QSettings>(fileName, QSettings::IniFormat))
{
}

Defaults::~Defaults() = default;

QVariant Defaults::value(const QString& key) const
{
    const QVariant stored = m_settings->value(key);
    return stored.isValid() ? stored : m_registered.value(key);
}

bool Defaults::boolValue(const QString& key) const
{
    return value(key).toBool();
}

int Defaults::intValue(const QString& key) const
{
    return value(key).toInt();
}

double Defaults::doubleValue(const QString& key) const
{
    return value(key).toDouble();
}

QString Defaults::stringValue(const QString& key) const
{
    return value(key).toString();
}

DefaultsController& DefaultsController::shared()
{
    static DefaultsController controller;
    return controller;
}

void Defaults::setValue(const QString& key, const QVariant& value)
{
    const QVariant before = this->value(key);
    m_settings->setValue(key, value);
    announceChange(key, before);
}

void Defaults::removeValue(const QString& key)
{
    const QVariant before = value(key);
    m_settings->remove(key);
    announceChange(key, before);
}

void Defaults::announceChange(const QString& key, const QVariant& before) const
{
    if (this == sharedInstance().get() && value(key) != before) {
        emit DefaultsController::shared().valueChanged(QStringLiteral("values.") + key);
    }
}

bool Defaults::hasUserValue(const QString& key) const
{
    return m_settings->contains(key);
}

void Defaults::synchronize()
{
    m_settings->sync();
}

void Defaults::registerDefaults(const QVariantMap& defaults)
{
    for (auto it = defaults.begin(); it != defaults.end(); ++it) {
        m_registered.insert(it.key(), it.value());
    }
}

QString Defaults::fileName() const
{
    return m_settings->fileName();
}

}  // namespace trovara::model
