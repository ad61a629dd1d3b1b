// Makes the text of a patcher document of a given size: rows of counters and prints, joined.
#pragma once

#include <string>

namespace kiv::bench {

inline std::string patch_text(int boxes, int cords) {
    std::string text = "{\"patcher\" : {\"fileversion\" : 1, \"rect\" : [0.0, 0.0, 640.0, 480.0], ";
    text += "\"boxes\" : [";
    for (int i = 0; i < boxes; ++i) {
        const std::string n = std::to_string(i + 1);
        text += std::string(i ? "," : "") +
                "{\"box\" : {\"kivclass\" : \"newobj\", \"id\" : \"obj-" + n + "\", \"text\" : \"" +
                (i % 2 ? "+ " : "int ") + n +
                "\", \"numinlets\" : 2, \"numoutlets\" : 1, \"outlettype\" : [\"int\"], "
                "\"patching_rect\" : [" +
                std::to_string(i % 100 * 60) + ".0, " + std::to_string(i / 100 * 30) +
                ".0, 50.0, 22.0]}}\n";
    }
    text += "], \"lines\" : [";
    for (int i = 0; i < cords; ++i) {
        const int from = i % boxes;
        const int to = (from + 1 + i / boxes) % boxes;
        text += std::string(i ? "," : "") + "{\"patchline\" : {\"source\" : [\"obj-" +
                std::to_string(from + 1) + "\", 0], \"destination\" : [\"obj-" +
                std::to_string(to + 1) + "\", 1]}}\n";
    }
    return text + "]}}";
}

}  // namespace kiv::bench
