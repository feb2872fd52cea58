#pragma once

#include <string>

#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// The lines of a diagnosis, shown as soon as they are known.
class DoctorReport {
public:
    explicit DoctorReport(const Surroundings& surroundings) : surroundings(surroundings) {}

    void ok(const std::string& text);
    void wrong(const std::string& text, const std::string& advice);
    /// Not looked at, because of something wrong before it.
    void skip(Bilingual what);

    bool isAllWell() const { return wrongs == 0; }

private:
    void line(Colour colour, Bilingual mark, const std::string& text) const;

    const Surroundings& surroundings;
    int wrongs = 0;
};

}  // namespace orv::companion
