#pragma once

#include <string>
#include <vector>

namespace tivra_bench {

/// What a program was asked on its command line: PROGRAM [ROUNDS] [--quick] [--json FILE].
struct Options {
    /// Ends the program with status 2 when the line has something else.
    Options(int argc, char** argv, int roundsByDefault);

    int rounds = 0;
    bool isQuick = false; ///< fewer rounds and smaller loads, for a look rather than for a figure
};

/// Whether more of a figure is good.
enum class Better { LOWER, HIGHER };

/// The figures of a program, printed where they arise and left in a file for other programs. One per process.
class Report {
public:
    static Report& get();

    /// Where the figures go; written when the process ends well.
    void writeTo(std::string file);
    /// Begins the names of the figures that follow.
    void setSection(std::string section) { m_section = std::move(section); }
    /// A figure of which there is one value for each round: its median, and the noise of the rounds.
    void add(const std::string& name, const std::vector<double>& values, const std::string& unit,
             Better better = Better::LOWER);
    /// A quantile of many values in the order of their arrival. Its noise is that of ten stretches of them.
    void addQuantile(const std::string& name, const std::vector<double>& values, double share,
                     const std::string& unit);
    /// The same, and a line of it.
    void print(const std::string& name, const std::vector<double>& values, const std::string& unit,
               Better better = Better::LOWER);
    void printQuantiles(const std::string& name, const std::vector<double>& values, const std::string& unit);
    /// Writes the file, if one was asked for. Throws std::runtime_error when it can't.
    void finish() const;

private:
    struct Row {
        std::string name;
        std::string unit;
        Better better;
        double value;
        double noise;
        std::size_t count;
    };

    void insert(Row row);

    std::string m_file;
    std::string m_section;
    std::vector<Row> m_rows;
};

} // namespace tivra_bench
