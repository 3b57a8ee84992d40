#pragma once

#include "FieldSelection.h"
#include "OutputFormat.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tivra_cat {

/// A message as a row of an aligned table, one column per field. Columns appear as fields come by, or are
/// those that the user asked for; a wider value widens its column for the rows behind it.
class TableRows : public OutputFormat {
public:
    struct Settings {
        bool isColored = false;
        bool isLive = false;         ///< rows are printed as they come; else the first ones set the widths
        bool showsSymbol = true;     ///< source and symbol lead each row
        double everySeconds = 0.0;   ///< above 0 a row holds a symbol's latest values, printed that often
        std::size_t headerEvery = 0; ///< rows after which the header comes again, 0 for never
    };

    TableRows(const Settings& settings, const FieldSelection& selection);

    void add(const Record& record, std::string& out) override;
    void tick(std::chrono::steady_clock::time_point now, std::string& out) override;
    void finish(std::string& out) override;

private:
    enum class Kind { Received, Source, Symbol, Field };

    struct Column {
        Kind kind = Kind::Field;
        FieldChoice choice;
        std::size_t width = 0;
        bool isRightAligned = false;
    };

    struct Cell {
        std::string text;
        bool isNumber = false;
        double number = 0.0;
        int rank = 0;   ///< which of the column's alternatives it is
        int change = 0; ///< against the symbol's row before: 1 above, -1 below
    };

    struct Row {
        std::vector<Cell> cells;
        bool isDue = false; ///< has values that were not printed yet
    };

    using Key = std::pair<int, std::string>;

    void addColumn(Kind kind, FieldChoice choice, bool isRightAligned);
    /// The columns that a field belongs to.
    const std::vector<std::size_t>& columnsOf(const Field& field);
    void fill(Row& row, const Record& record);
    void put(Row& row, std::size_t column, Cell cell);
    void markChanges(Row& row, const Key& key);
    void printRow(const Row& row, std::string& out);
    void printHeader(std::string& out);
    void printHeld(std::string& out);

    const Settings m_settings;
    const bool m_takesAll;
    std::vector<Column> m_columns;
    std::unordered_map<int, std::vector<std::size_t>> m_columnsOfToken;
    std::vector<Row> m_held;                    ///< rows that wait for the widths
    std::map<Key, Row> m_latest;                ///< with everySeconds: what is known of each symbol
    std::map<Key, std::vector<double>> m_shown; ///< numbers of the row before, for the colours
    std::chrono::steady_clock::time_point m_lastPrint{};
    bool m_isHolding;
    bool m_needsHeader = true;
    std::size_t m_rowsSinceHeader = 0;
};

} // namespace tivra_cat
