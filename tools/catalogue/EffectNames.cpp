// Prints the short name of every effect this build can make, one a line: the build makes a
// frei0r plug-in for each.
#include <cstdio>

#include "catalogue/Catalogue.h"

int main() {
    for (const catalogue::EffectDescription* effect : catalogue::Effects()) {
        if (catalogue::BuildGap(*effect) == nullptr) std::printf("%s\n", effect->name);
    }
    return 0;
}
