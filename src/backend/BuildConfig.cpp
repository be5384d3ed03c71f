#include "backend/BuildConfig.h"

#include "core/Logging.h"

#include <QFile>
#include <QJsonDocument>
#include <QMutex>

namespace parlino::BuildConfig {

namespace {

QMutex g_overrideMutex;
std::optional<QJsonObject> g_override;

struct Setting {
    const char *label;
    QString infoKey;
    const char *envVar;
};

const Setting kApiKey{"API Key", QStringLiteral("APIKey"), "API_KEY"};
const Setting kSupabaseURL{"Supabase URL", QStringLiteral("SupabaseURL"), "SUPABASE_URL"};
const Setting kSupabaseKey{"Supabase Key", QStringLiteral("SupabaseKey"), "SUPABASE_KEY"};

std::optional<QString> read(const Setting &setting)
{
    return lookup(infoDictionary(), setting.infoKey, setting.envVar);
}

} // namespace

std::optional<QString> lookup(const QJsonObject &info, const QString &infoKey, const char *envVar)
{
    const QJsonValue value = info.value(infoKey);
    if (value.isString() && !value.toString().isEmpty())
        return value.toString();
    if (qEnvironmentVariableIsSet(envVar))
        return qEnvironmentVariable(envVar);
    return std::nullopt;
}

QJsonObject infoDictionary()
{
    {
        QMutexLocker lock(&g_overrideMutex);
        if (g_override)
            return *g_override;
    }
    QFile file(QStringLiteral(":/parlino/Info.json"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

void overrideInfoDictionary(std::optional<QJsonObject> info)
{
    QMutexLocker lock(&g_overrideMutex);
    g_override = std::move(info);
}

std::optional<QString> apiKey()
{
    return read(kApiKey);
}

std::optional<QString> supabaseURL()
{
    return read(kSupabaseURL);
}

std::optional<QString> supabaseKey()
{
    return read(kSupabaseKey);
}

void printConfiguration()
{
    const QJsonObject info = infoDictionary();
    for (const Setting *setting : {&kApiKey, &kSupabaseURL, &kSupabaseKey}) {
        const QJsonValue compiled = info.value(setting->infoKey);
        QString state;
        if (compiled.isString() && !compiled.toString().isEmpty())
            state = QStringLiteral("✅ set (build)");
        else if (qEnvironmentVariableIsSet(setting->envVar))
            state = qEnvironmentVariableIsEmpty(setting->envVar) ? QStringLiteral("⚠️ empty (environment)")
                                                                 : QStringLiteral("✅ set (environment)");
        else
            state = QStringLiteral("❌ not set");
        PLOG(lcBackend) << "   - " << QLatin1String(setting->label) << ": " << state;
    }
}

} // namespace parlino::BuildConfig
