#include <CLI/CLI.hpp>
#include <cstdio>
#include <regex>

#include "bench/Rows.h"
#include "platform/vo/Log.h"

int main(int argc, char** argv)
{
    CLI::App app("Measures the engine against what a user would pick instead.");
    std::string only;
    const auto isExpression = [](const std::string& text) -> std::string {
        try {
            std::regex{text};
            return {};
        } catch (const std::regex_error& e) {
            return e.what();
        }
    };
    app.add_option("--only", only, "Measure only the rows that this regular expression finds")
        ->check(CLI::Validator(isExpression, "REGEX"));
    CLI11_PARSE(app, argc, argv);
#ifndef NDEBUG
    std::fputs("warning: this build is not optimised, its numbers mean nothing\n", stderr);
#endif
    // The launchpads that are measured miss services that nobody needs here, and say so.
    vo::setLogLevel(vo::LogLevel::silent);

    bench::Table table(only);
    table.printHead();
    for (const auto measure : {bench::measureOneChange, bench::measureWideKeys,
                               bench::measureHandOver, bench::measureBursts, bench::measureLoading,
                               bench::measureTime, bench::measureHost, bench::measureRecord})
        measure(table);

    if (table.rows() == 0) {
        std::fprintf(stderr, "no row's name has '%s' in it\n", only.c_str());
        return 2;
    }
    if (table.missed().empty()) {
        if (table.judged() > 0)
            std::printf("\nAll %zu rows are reached.\n", table.judged());
        return 0;
    }
    std::printf("\n%zu of %zu rows are not reached:\n", table.missed().size(), table.judged());
    for (const std::string& row : table.missed())
        std::printf("  %s\n", row.c_str());
    std::printf("docs/performance.md has the numbers behind it.\n");
    return 1;
}
