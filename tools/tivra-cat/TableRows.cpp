#include "TableRows.h"

#include "ValueText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace tivra_cat {

namespace {

/// Rows of a query that are looked at for the widths before the first is printed.
constexpr std::size_t kHeldRows = 1000;
constexpr std::size_t kMinNumberWidth = 8;
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

double numberOf(const Field& field) {
    if (field.type == tivra::DOUBLE)
        return field.number;
    long long number = 0;
    std::from_chars(field.text.data(), field.text.data() + field.text.size(), number);
    return static_cast<double>(number);
}

} // namespace

TableRows::TableRows(const Settings& settings, const FieldSelection& selection)
    : m_settings(settings)
    , m_takesAll(selection.selectsAll())
    , m_isHolding(!settings.isLive && settings.everySeconds <= 0.0) {
    if (m_takesAll && settings.isLive)
        addColumn(Kind::Received, {"received", {}}, false);
    if (settings.showsSymbol) {
        addColumn(Kind::Source, {"source", {}}, true);
        addColumn(Kind::Symbol, {"symbol", {}}, false);
    }
    for (const FieldChoice& choice : selection.choices()) {
        addColumn(choice.isReceived() ? Kind::Received : Kind::Field, choice, false);
    }
}

void TableRows::addColumn(Kind kind, FieldChoice choice, bool isRightAligned) {
    Column column;
    column.kind = kind;
    column.width = choice.label.size();
    if (kind == Kind::Received)
        column.width = std::max(column.width, std::size_t{12});
    if (kind == Kind::Symbol)
        column.width = std::max(column.width, std::size_t{8});
    column.choice = std::move(choice);
    column.isRightAligned = isRightAligned;
    m_columns.push_back(std::move(column));
}

const std::vector<std::size_t>& TableRows::columnsOf(const Field& field) {
    const auto known = m_columnsOfToken.find(field.token);
    if (known != m_columnsOfToken.end())
        return known->second;
    std::vector<std::size_t>& columns = m_columnsOfToken[field.token];
    if (m_takesAll) {
        const std::string name = printable(*field.name);
        addColumn(Kind::Field, {name, {name}}, false);
        m_needsHeader = true;
        columns.push_back(m_columns.size() - 1);
    } else {
        for (std::size_t i = 0; i < m_columns.size(); ++i) {
            if (m_columns[i].kind == Kind::Field && m_columns[i].choice.rankOf(field.token, *field.name) >= 0)
                columns.push_back(i);
        }
    }
    for (const std::size_t i : columns) {
        if (field.type == tivra::INT64 || field.type == tivra::DOUBLE) {
            m_columns[i].isRightAligned = true;
            m_columns[i].width = std::max(m_columns[i].width, kMinNumberWidth);
        }
    }
    return columns;
}

void TableRows::put(Row& row, std::size_t column, Cell cell) {
    if (row.cells.size() <= column)
        row.cells.resize(m_columns.size());
    row.cells[column] = std::move(cell);
}

void TableRows::fill(Row& row, const Record& record) {
    std::vector<bool> isFilled(m_columns.size(), false);
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        Cell cell;
        if (m_columns[i].kind == Kind::Received)
            cell.text = timeText(record.received);
        else if (m_columns[i].kind == Kind::Source && record.source != 0)
            cell.text = std::to_string(record.source);
        else if (m_columns[i].kind == Kind::Symbol)
            cell.text = printable(record.symbol);
        else
            continue;
        put(row, i, std::move(cell));
    }
    for (const Field& field : record.fields) {
        for (const std::size_t i : columnsOf(field)) {
            Cell cell;
            cell.text = readableValue(field);
            cell.isNumber = field.type == tivra::INT64 || field.type == tivra::DOUBLE;
            cell.number = cell.isNumber ? numberOf(field) : 0.0;
            cell.rank = m_takesAll ? 0 : m_columns[i].choice.rankOf(field.token, *field.name);
            isFilled.resize(m_columns.size(), false);
            // The first alternative that the message has wins, not the last.
            if (isFilled[i] && cell.rank >= row.cells[i].rank)
                continue;
            isFilled[i] = true;
            put(row, i, std::move(cell));
        }
    }
}

void TableRows::add(const Record& record, std::string& out) {
    if (!record.hasData())
        return;
    const Key key{record.source, record.symbol};
    if (m_settings.everySeconds > 0.0) {
        Row& row = m_latest[key];
        fill(row, record);
        row.isDue = true;
        return;
    }
    Row row;
    fill(row, record);
    if (m_isHolding) {
        m_held.push_back(std::move(row));
        if (m_held.size() >= kHeldRows)
            printHeld(out);
        return;
    }
    markChanges(row, key);
    printRow(row, out);
}

void TableRows::tick(std::chrono::steady_clock::time_point now, std::string& out) {
    if (m_settings.everySeconds <= 0.0 ||
        now - m_lastPrint < std::chrono::duration<double>(m_settings.everySeconds))
        return;
    m_lastPrint = now;
    for (auto& [key, row] : m_latest) {
        if (!row.isDue)
            continue;
        markChanges(row, key);
        printRow(row, out);
        row.isDue = false;
    }
}

void TableRows::finish(std::string& out) {
    printHeld(out);
    m_lastPrint = {};
    tick(std::chrono::steady_clock::now(), out);
}

void TableRows::markChanges(Row& row, const Key& key) {
    if (!m_settings.isColored)
        return;
    std::vector<double>& shown = m_shown[key];
    shown.resize(std::max(shown.size(), row.cells.size()), kNoNumber);
    for (std::size_t i = 0; i < row.cells.size(); ++i) {
        Cell& cell = row.cells[i];
        cell.change = 0;
        if (!cell.isNumber)
            continue;
        if (!std::isnan(shown[i]))
            cell.change = cell.number > shown[i] ? 1 : cell.number < shown[i] ? -1 : 0;
        shown[i] = cell.number;
    }
}

void TableRows::printHeld(std::string& out) {
    m_isHolding = false;
    for (const Row& row : m_held) {
        for (std::size_t i = 0; i < row.cells.size(); ++i)
            m_columns[i].width = std::max(m_columns[i].width, row.cells[i].text.size());
    }
    for (const Row& row : m_held)
        printRow(row, out);
    m_held.clear();
}

void TableRows::printHeader(std::string& out) {
    std::string line;
    for (const Column& column : m_columns) {
        const std::size_t padding = column.width - column.choice.label.size();
        line += std::string(column.isRightAligned ? padding : 0, ' ') + column.choice.label;
        line += std::string(column.isRightAligned ? 2 : padding + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += m_settings.isColored ? "\x1b[1m" + line + "\x1b[0m\n" : line + "\n";
    m_needsHeader = false;
    m_rowsSinceHeader = 0;
}

void TableRows::printRow(const Row& row, std::string& out) {
    for (std::size_t i = 0; i < row.cells.size(); ++i)
        m_columns[i].width = std::max(m_columns[i].width, row.cells[i].text.size());
    if (m_needsHeader || (m_settings.headerEvery > 0 && m_rowsSinceHeader >= m_settings.headerEvery))
        printHeader(out);
    ++m_rowsSinceHeader;
    std::size_t owedSpaces = 0;
    for (std::size_t i = 0; i < row.cells.size(); ++i) {
        const Cell& cell = row.cells[i];
        const std::size_t padding = m_columns[i].width - cell.text.size();
        if (cell.text.empty()) {
            owedSpaces += padding + 2;
            continue;
        }
        out.append(owedSpaces + (m_columns[i].isRightAligned ? padding : 0), ' ');
        if (cell.change != 0)
            out += cell.change > 0 ? "\x1b[32m" : "\x1b[31m";
        out += cell.text;
        if (cell.change != 0)
            out += "\x1b[0m";
        owedSpaces = (m_columns[i].isRightAligned ? 0 : padding) + 2;
    }
    out.push_back('\n');
}

} // namespace tivra_cat
