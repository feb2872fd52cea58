#include "WsparoCompanion/DoctorReport.h"

#include "WsparoCompanion/DoctorTexts.h"
#include "WsparoCompanion/Printable.h"

namespace orv::companion {

void DoctorReport::ok(const std::string& text) {
    line(Colour::green, doctorTexts::ok, text);
}

void DoctorReport::wrong(const std::string& text, const std::string& advice) {
    ++wrongs;
    line(Colour::red, doctorTexts::wrong, text);
    surroundings.out.line("      " + printableLine(advice));
}

void DoctorReport::skip(Bilingual what) {
    line(Colour::faint, doctorTexts::skipped,
         surroundings.say(doctorTexts::skippedWhy, surroundings.say(what)));
}

void DoctorReport::line(Colour colour, Bilingual mark, const std::string& text) const {
    surroundings.out.line(surroundings.out.in(colour, surroundings.say(mark)) + "  " +
                          printableLine(text));
}

}  // namespace orv::companion
