#include "backend/ModelSettings.h"

#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QMutexLocker>

namespace parlino {

namespace {

const QStringList providers{ModelSettings::openAISpeechProvider, ModelSettings::openAIRealtimeProvider,
                            ModelSettings::offlineProvider};

bool isOwnKey(const QString &key)
{
    return key == SettingsKeys::speechProvider || key == SettingsKeys::speechModel
           || key == SettingsKeys::realtimeSpeechModel || key == SettingsKeys::chatModel
           || key == SettingsKeys::transcriptionModel;
}

} // namespace

ModelSettings::ModelSettings(Defaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
{
    connect(&m_defaults, &Defaults::valueChanged, this, [this](const QString &key) {
        if (isOwnKey(key))
            Q_EMIT changed();
    });
}

ModelSettings::~ModelSettings() = default;

QString ModelSettings::defaultModel(ModelRole role)
{
    // The catalogue lists each use's default first.
    return ModelCatalogue::names(role).value(0);
}

QString ModelSettings::settingsKey(ModelRole role)
{
    switch (role) {
    case ModelRole::speech: return SettingsKeys::speechModel;
    case ModelRole::realtimeSpeech: return SettingsKeys::realtimeSpeechModel;
    case ModelRole::chat: return SettingsKeys::chatModel;
    case ModelRole::transcription: return SettingsKeys::transcriptionModel;
    }
    return {};
}

QString ModelSettings::readChecked(const QString &key, const QStringList &allowed, const QString &fallback) const
{
    const std::optional<QString> stored = m_defaults.stringForKey(key);
    if (!stored)
        return fallback;
    if (allowed.contains(*stored))
        return *stored;
    QMutexLocker lock(&m_warnedMutex);
    if (!m_warnedKeys.contains(key)) {
        m_warnedKeys.insert(key);
        PWARN(lcBackend) << "⚠️ Unknown " << key << " '" << *stored << "' in settings - using " << fallback;
    }
    return fallback;
}

QString ModelSettings::speechProvider() const
{
    return readChecked(SettingsKeys::speechProvider, providers, openAISpeechProvider);
}

QString ModelSettings::model(ModelRole role) const
{
    return readChecked(settingsKey(role), ModelCatalogue::names(role), defaultModel(role));
}

QString ModelSettings::speechModel() const
{
    return model(ModelRole::speech);
}

QString ModelSettings::realtimeSpeechModel() const
{
    return model(ModelRole::realtimeSpeech);
}

QString ModelSettings::chatModel() const
{
    return model(ModelRole::chat);
}

QString ModelSettings::transcriptionModel() const
{
    return model(ModelRole::transcription);
}

QString ModelSettings::activeSpeechModel() const
{
    return speechProvider() == openAIRealtimeProvider ? realtimeSpeechModel() : speechModel();
}

bool ModelSettings::setSpeechProvider(const QString &provider)
{
    if (!providers.contains(provider))
        return false;
    m_defaults.set(SettingsKeys::speechProvider, provider);
    return true;
}

bool ModelSettings::setModel(ModelRole role, const QString &model)
{
    if (!ModelCatalogue::isKnown(model, role))
        return false;
    m_defaults.set(settingsKey(role), model);
    return true;
}

bool ModelSettings::switchToSuccessor(ModelRole role, const QString &retiredModel)
{
    const auto successor = ModelCatalogue::successorOf(retiredModel);
    if (!successor || !ModelCatalogue::isKnown(retiredModel, role)) {
        PWARN(lcBackend) << "❌ Model " << retiredModel << " was refused as retired and no "
                         << ModelCatalogue::roleName(role) << " model follows it";
        return false;
    }
    {
        QMutexLocker lock(&m_switchMutex);
        const QString inUse = role == ModelRole::speech ? activeSpeechModel() : model(role);
        if (inUse != retiredModel)
            return false; // an earlier refusal has switched already
        m_defaults.set(settingsKey(successor->role), successor->name);
        if (successor->role == ModelRole::realtimeSpeech)
            m_defaults.set(SettingsKeys::speechProvider, openAIRealtimeProvider);
    }
    PLOG(lcBackend) << "ℹ️ Model " << retiredModel << " is retired - " << ModelCatalogue::roleName(role)
                    << " now uses " << successor->name
                    << (successor->role == ModelRole::realtimeSpeech ? QStringLiteral(" through the Realtime API")
                                                                     : QString());
    Q_EMIT switchedToSuccessor(role, retiredModel, successor->name);
    return true;
}

} // namespace parlino
