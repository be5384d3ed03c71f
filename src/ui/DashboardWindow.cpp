#include "ui/DashboardWindow.h"

#include "app/AppState.h"
#include "core/Clock.h"
#include "usage/MonthlyUsageStats.h"
#include "usage/SpeechPrices.h"
#include "usage/UsageBreakdowns.h"
#include "usage/UsageTracker.h"
#include "usage/UsageTrackingService.h"

#include <QBarCategoryAxis>
#include <QBarSeries>
#include <QBarSet>
#include <QChart>
#include <QChartView>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QTableWidget>
#include <QVBoxLayout>
#include <QValueAxis>

#include <algorithm>

namespace parlino {

namespace {

QString featureName(const QString &feature)
{
    if (feature == u"read_aloud")
        return QStringLiteral("Read aloud");
    if (feature == u"read_summary")
        return QStringLiteral("Summaries");
    if (feature == u"podcast")
        return QStringLiteral("Podcasts");
    if (feature == u"question")
        return QStringLiteral("Questions");
    return feature;
}

QString voiceName(const QString &voice)
{
    if (voice.startsWith(QLatin1String("espeak:")))
        return QStringLiteral("Offline (%1)").arg(voice.mid(7));
    QString name = voice;
    if (!name.isEmpty())
        name[0] = name[0].toUpper();
    return name;
}

// A figure with its caption above it; the caption is also the figure's name for screen readers.
QLabel *addFigure(QGridLayout *grid, int column, const QString &caption, QWidget *parent)
{
    auto *title = new QLabel(caption, parent);
    auto *value = new QLabel(parent);
    QFont big = value->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    value->setFont(big);
    value->setAccessibleName(caption);
    value->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    grid->addWidget(title, 0, column);
    grid->addWidget(value, 1, column);
    return value;
}

QTableWidget *makeTable(const QString &name, const QString &firstColumn, QWidget *parent)
{
    auto *table = new QTableWidget(0, 4, parent);
    table->setHorizontalHeaderLabels(
        {firstColumn, QStringLiteral("Readings"), QStringLiteral("Characters"), QStringLiteral("Cost")});
    table->setAccessibleName(name);
    table->setToolTip(name);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table->setMinimumHeight(130);
    return table;
}

void fill(QTableWidget *table, const QMap<QString, UsageBreakdown> &lines, QString (*name)(const QString &))
{
    // Largest first: what cost most is what the user looks for.
    QList<QPair<QString, UsageBreakdown>> sorted;
    for (auto it = lines.cbegin(); it != lines.cend(); ++it)
        sorted.append({it.key(), it.value()});
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto &a, const auto &b) { return a.second.characters > b.second.characters; });
    const QLocale locale;
    table->setRowCount(static_cast<int>(sorted.size()));
    for (int row = 0; row < sorted.size(); ++row) {
        const auto &[key, line] = sorted.at(row);
        const QStringList cells{name(key), locale.toString(line.callCount), locale.toString(line.characters),
                                dollarText(line.costCents)};
        for (int column = 0; column < cells.size(); ++column) {
            auto *item = new QTableWidgetItem(cells.at(column));
            if (column > 0)
                item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            table->setItem(row, column, item);
        }
    }
}

} // namespace

DashboardWindow::DashboardWindow(UsageTrackingService &usage, UsageTracker &listening, AppState &state, Clock &clock,
                                 QWidget *parent)
    : QWidget(parent)
    , m_usage(usage)
    , m_listening(listening)
    , m_state(state)
    , m_clock(clock)
{
    setObjectName(QStringLiteral("DashboardWindow"));
    setWindowTitle(QStringLiteral("Parlino Dashboard"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("parlino"), QIcon::fromTheme(QStringLiteral("audio-volume-high"))));
    resize(720, 640);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 16);
    auto *heading = new QLabel(QStringLiteral("This month"), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.3);
    headingFont.setBold(true);
    heading->setFont(headingFont);
    layout->addWidget(heading);

    auto *figures = new QGridLayout;
    m_characters = addFigure(figures, 0, QStringLiteral("Characters read"), this);
    m_cost = addFigure(figures, 1, QStringLiteral("Estimated cost"), this);
    m_readings = addFigure(figures, 2, QStringLiteral("Readings"), this);
    m_listeningTime = addFigure(figures, 3, QStringLiteral("Time listened"), this);
    m_averageSpeed = addFigure(figures, 4, QStringLiteral("Average speed"), this);
    layout->addLayout(figures);

    auto *chart = new QChart;
    chart->setTitle(QStringLiteral("Characters per day"));
    chart->legend()->hide();
    chart->setAnimationOptions(QChart::NoAnimation);
    auto *chartView = new QChartView(chart, this);
    chartView->setRenderHint(QPainter::Antialiasing);
    chartView->setMinimumHeight(200);
    chartView->setFocusPolicy(Qt::StrongFocus); // so a screen reader can land on its description
    chartView->setAccessibleName(QStringLiteral("Characters per day"));
    m_chart = chartView;
    layout->addWidget(chartView, 1);

    auto *tables = new QHBoxLayout;
    m_byFeature = makeTable(QStringLiteral("Usage by feature"), QStringLiteral("Feature"), this);
    m_byVoice = makeTable(QStringLiteral("Usage by voice"), QStringLiteral("Voice"), this);
    tables->addWidget(m_byFeature);
    tables->addWidget(m_byVoice);
    layout->addLayout(tables);

    m_sync = new QLabel(this);
    m_sync->setAccessibleName(QStringLiteral("Sync status"));
    m_sync->setWordWrap(true);
    layout->addWidget(m_sync);

    connect(&m_usage, &UsageTrackingService::monthlyStatsChanged, this, &DashboardWindow::refresh);
    connect(&m_listening, &UsageTracker::totalListeningTimeChanged, this, &DashboardWindow::refreshListening);
    connect(&m_listening, &UsageTracker::playbackSpeedChanged, this, &DashboardWindow::refreshListening);
    connect(&m_state, &AppState::usageSyncStatusChanged, this, &DashboardWindow::refreshSync);
    refresh();
}

QString DashboardWindow::dailySummary() const
{
    return m_dailySummary;
}

void DashboardWindow::refresh()
{
    const QLocale locale;
    const MonthlyUsageStats &stats = m_usage.monthlyStats();
    m_characters->setText(locale.toString(stats.totalCharacters));
    m_cost->setText(dollarText(stats.exactCostCents));
    m_readings->setText(
        locale.toString(stats.ttsCallCount + stats.podcastCount + stats.qaInteractionCount + stats.readSummaryCount));
    fill(m_byFeature, stats.byFeature, &featureName);
    fill(m_byVoice, breakdownByVoice(m_usage.usageLogs()), &voiceName);

    // One bar per day of the month so far.
    const QDate first = m_usage.currentMonthStart().date();
    const int days = m_usage.getDaysInCurrentPeriod();
    const QList<qint64> perDay = charactersPerDay(m_usage.usageLogs(), first, days);
    auto *view = static_cast<QChartView *>(m_chart);
    QChart *chart = view->chart();
    chart->removeAllSeries();
    for (QAbstractAxis *axis : chart->axes())
        chart->removeAxis(axis);
    auto *set = new QBarSet(QStringLiteral("Characters"));
    QStringList dayNames;
    QStringList spoken;
    qint64 highest = 0;
    for (int day = 0; day < perDay.size(); ++day) {
        *set << static_cast<qreal>(perDay.at(day));
        dayNames << QString::number(first.addDays(day).day());
        highest = std::max(highest, perDay.at(day));
        if (perDay.at(day) > 0)
            spoken << QStringLiteral("%1: %2 characters")
                          .arg(locale.toString(first.addDays(day), QStringLiteral("d MMM")),
                               locale.toString(perDay.at(day)));
    }
    auto *series = new QBarSeries;
    series->append(set);
    chart->addSeries(series);
    auto *axisX = new QBarCategoryAxis;
    axisX->append(dayNames);
    // Up to 31 day numbers fit side by side only when small and upright.
    QFont small = axisX->labelsFont();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    axisX->setLabelsFont(small);
    axisX->setLabelsAngle(-90);
    chart->addAxis(axisX, Qt::AlignBottom);
    series->attachAxis(axisX);
    auto *axisY = new QValueAxis;
    axisY->setRange(0, static_cast<qreal>(std::max<qint64>(highest, 10)) * 1.1);
    axisY->setLabelFormat(QStringLiteral("%d"));
    axisY->applyNiceNumbers();
    chart->addAxis(axisY, Qt::AlignLeft);
    series->attachAxis(axisY);
    m_dailySummary = spoken.isEmpty() ? QStringLiteral("Nothing read this month yet.") : spoken.join(u"; ");
    view->setAccessibleDescription(m_dailySummary);
    view->setToolTip(m_dailySummary);

    refreshListening();
    refreshSync();
}

void DashboardWindow::refreshListening()
{
    const auto seconds = static_cast<qint64>(m_listening.totalListeningTime());
    m_listeningTime->setText(seconds >= 3600
                                 ? QStringLiteral("%1 h %2 min").arg(seconds / 3600).arg(seconds % 3600 / 60)
                                 : QStringLiteral("%1 min %2 s").arg(seconds / 60).arg(seconds % 60));
    m_averageSpeed->setText(QLocale().toString(m_listening.averagePlaybackSpeed(), 'f', 2) + u'×');
}

void DashboardWindow::refreshSync()
{
    const QString &status = m_state.usageSyncStatus();
    m_sync->setText(
        QStringLiteral("Sync: ")
        + (status.isEmpty() ? QStringLiteral("usage stays on this computer (no database set up)") : status));
}

} // namespace parlino
