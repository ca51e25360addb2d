// Makes the orders that a board can follow out of a script for people. All that can be wrong with a line is found here,
// before the board starts; the board itself only does as it is told.
//
// An order is a line "LINE TIME WORD...": of which line of the script it comes, at which board time it is to be
// done ("-" for at once), and what. sim/orders.cpp has the words.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim::script {

struct Problem {
    unsigned line;
    std::string text;  // what is wrong, and what would be right
};

// What later lines depend on. Partitions and devices are known in the order of the times they come at.
struct Known {
    unsigned environment = 0;  // where it ends; 0: there is none
    bool network = false;
    enum { kNothing, kSaved, kFiles } kept = kNothing;  // what is there already, and not made a second time
    unsigned serial_ports = 0;
};

class Compiler {
  public:
    // `boot`: how often the board was switched on, from 1. Lines of other boots are looked at, and left out.
    explicit Compiler(unsigned boot) : boot_(boot) {}

    // The orders of a board that is switched on: those of its script, after those that every board has. For a program
    // `beside` another one on a board that is on they leave the files alone.
    std::string start(std::string_view script, bool beside = false);
    // The orders of some lines. Those that are wrong make none.
    std::string compile(std::string_view text);
    // The orders of one that acts now, while the board runs.
    std::string tell(const std::string& line);

    const std::vector<Problem>& problems() const { return problems_; }  // of the last lines, in their order
    void set_boot(unsigned boot) { boot_ = boot; }
    bool wants_network() const { return known_.network; }

  private:
    unsigned boot_;
    Known known_;
    std::vector<Problem> problems_;
};

// All lines that there are.
std::string known_lines();

}  // namespace sim::script
