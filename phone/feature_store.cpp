#include "phone/feature_store.h"

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace fxsphone {

namespace {

using nlohmann::ordered_json;

struct text_field {
    char const* name;
    std::string line_features::*value;
};

constexpr char const* quiet = "do_not_disturb";
constexpr text_field text_fields[] = {
    {"forward_always", &line_features::forward_always},       {"forward_busy", &line_features::forward_busy},
    {"forward_no_answer", &line_features::forward_no_answer}, {"last_caller", &line_features::last_caller},
    {"last_dialled", &line_features::last_dialled},
};

}  // namespace

features_by_user read_features(std::string const& path) {
    std::ifstream in(path);
    ordered_json const file = ordered_json::parse(in, nullptr, false);
    features_by_user all;
    if (!file.is_object())
        return all;
    for (auto const& [user, json] : file.items()) {
        line_features& one = all[user];
        if (!json.is_object())
            continue;
        one.do_not_disturb = json.contains(quiet) && json[quiet] == true;
        for (text_field const& field : text_fields)
            if (json.contains(field.name) && json[field.name].is_string())
                one.*field.value = json[field.name].get<std::string>();
    }
    return all;
}

bool write_features(std::string const& path, features_by_user const& all) {
    ordered_json file = ordered_json::object();
    for (auto const& [user, one] : all) {
        file[user][quiet] = one.do_not_disturb;
        for (text_field const& field : text_fields)
            file[user][field.name] = one.*field.value;
    }
    std::string const fresh = path + ".new";
    std::ofstream out(fresh, std::ios::trunc);
    out << file.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
    out.close();
    return out.good() && std::rename(fresh.c_str(), path.c_str()) == 0;
}

}  // namespace fxsphone
