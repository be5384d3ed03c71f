#include "TestEnvironment.h"
#include "backend/BuildConfig.h"
#include "backend/DeviceIdentifier.h"
#include "core/Defaults.h"

#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

using namespace parlino;

class TestBuildConfig final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        BuildConfig::overrideInfoDictionary(std::nullopt);
        qunsetenv("API_KEY");
        qunsetenv("SUPABASE_URL");
    }

    void compiledInValueWinsOnlyWhenNonEmpty_data()
    {
        QTest::addColumn<QJsonObject>("info");
        QTest::addColumn<QVariant>("environment"); // invalid: variable unset
        QTest::addColumn<QVariant>("expected");    // invalid: no value

        const QString key = QStringLiteral("APIKey");
        QTest::newRow("build value") << QJsonObject{{key, QStringLiteral("from-build")}}
                                     << QVariant(QStringLiteral("env")) << QVariant(QStringLiteral("from-build"));
        QTest::newRow("empty build value")
            << QJsonObject{{key, QString()}} << QVariant(QStringLiteral("env")) << QVariant(QStringLiteral("env"));
        QTest::newRow("number in build") << QJsonObject{{key, 42}} << QVariant(QStringLiteral("env"))
                                         << QVariant(QStringLiteral("env"));
        QTest::newRow("empty variable stays empty") << QJsonObject() << QVariant(QString()) << QVariant(QString());
        QTest::newRow("nothing anywhere") << QJsonObject{{key, QString()}} << QVariant() << QVariant();
    }

    void compiledInValueWinsOnlyWhenNonEmpty()
    {
        QFETCH(QJsonObject, info);
        QFETCH(QVariant, environment);
        QFETCH(QVariant, expected);
        BuildConfig::overrideInfoDictionary(info);
        if (environment.isValid())
            qputenv("API_KEY", environment.toString().toUtf8());
        const std::optional<QString> value = BuildConfig::apiKey();
        QCOMPARE(value.has_value(), expected.isValid());
        if (value) {
            QCOMPARE(*value, expected.toString());
            // Empty is empty, never "absent".
            QCOMPARE(value->isNull(), false);
        }
    }

    void defaultBuildCompilesInNothing()
    {
        // A default build carries an information dictionary with empty values, so the environment decides.
        const QJsonObject info = BuildConfig::infoDictionary();
        QVERIFY(info.contains(QStringLiteral("SupabaseURL")));
        qputenv("SUPABASE_URL", "https://db.example.org");
        QCOMPARE(BuildConfig::supabaseURL(), std::optional<QString>(QStringLiteral("https://db.example.org")));
        QVERIFY(!BuildConfig::supabaseKey().has_value() || qEnvironmentVariableIsSet("SUPABASE_KEY"));
    }

    void deviceIdentifierIsCreatedOnceAndKept()
    {
        test::TestEnvironment env;
        const QString first = [&] {
            Defaults defaults(env.defaultsFile());
            return readOrCreateDeviceID(defaults);
        }();
        QVERIFY(
            QRegularExpression(QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"))
                .match(first)
                .hasMatch());
        Defaults relaunched(env.defaultsFile());
        QCOMPARE(readOrCreateDeviceID(relaunched), first);

        // Whatever is stored is used as it stands.
        relaunched.set(QStringLiteral("deviceID"), QStringLiteral("hand-written"));
        QCOMPARE(readOrCreateDeviceID(relaunched), QStringLiteral("hand-written"));
    }
};

QTEST_GUILESS_MAIN(TestBuildConfig)
#include "tst_BuildConfig.moc"
