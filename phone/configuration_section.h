#pragma once

#include <toml++/toml.h>

#include <initializer_list>
#include <set>
#include <string>
#include <utility>

namespace fxsphone {

/// Names a place in the file; caught in read_configuration().
struct complaint {
    toml::source_position where;
    std::string text;
};

/// Throws a complaint about the place where `at` begins.
[[noreturn]] inline void complain(toml::node const& at, std::string text) {
    throw complaint{at.source().begin, std::move(text)};
}

/// A table whose keys are all asked for: at the end, a key that nobody asked for is a mistake. A value of the wrong
/// kind throws a complaint; without the key the caller's value stays.
class section {
public:
    /// `title` names the table in complaints: "[sip]".
    section(toml::table const& keys, std::string title) : table(keys), name(std::move(title)) {}

    void number(char const* key, int& value, int lowest, int highest) {
        if (toml::node const* const node = find(key)) {
            auto const found = node->as_integer();
            if (found == nullptr || found->get() < lowest || found->get() > highest)
                complain(*node, "'" + std::string(key) + "' is to be a number from " + std::to_string(lowest) + " to " +
                                    std::to_string(highest));
            value = static_cast<int>(found->get());
        }
    }
    void text(char const* key, std::string& value) {
        if (toml::node const* const node = find(key))
            value = string_in(*node, key);
    }
    void yes_or_no(char const* key, bool& value) {
        if (toml::node const* const node = find(key)) {
            if (!node->is_boolean())
                complain(*node, "'" + std::string(key) + "' is to be true or false");
            value = node->as_boolean()->get();
        }
    }
    /// One of several words, with what each means.
    template <class kind>
    void choice(char const* key, kind& value, std::initializer_list<std::pair<char const*, kind>> words) {
        toml::node const* const node = find(key);
        if (node == nullptr)
            return;
        std::string const found = string_in(*node, key);
        std::string all;
        for (auto const& [word, meaning] : words) {
            if (found == word) {
                value = meaning;
                return;
            }
            all += (all.empty() ? "" : ", ") + std::string(word);
        }
        complain(*node, "'" + found + "' is none of " + all);
    }
    /// Calls each(table) or each(node) for the members of an array.
    template <class action>
    void list(char const* key, action&& each) {
        toml::node const* const node = find(key);
        if (node == nullptr)
            return;
        if (!node->is_array())
            complain(*node, "'" + std::string(key) + "' is to be an array");
        for (toml::node const& one : *node->as_array())
            each(one);
    }
    /// Any value; nullptr: the key is not there.
    toml::node const* find(char const* key) {
        known.insert(key);
        return table.get(key);
    }
    /// Any value; without the key a complaint about the table.
    toml::node const& needed(char const* key) {
        toml::node const* const node = find(key);
        return node != nullptr ? *node : (complain(table, name + " needs '" + key + "'"), table);
    }
    /// Complains about a key that was not asked for.
    void nothing_else() const {
        for (auto const& [key, node] : table)
            if (!known.contains(std::string(key.str())))
                throw complaint{key.source().begin, name + " has no key '" + std::string(key.str()) + "'"};
    }

    /// The text of a value that `key`, or a member of its array, has.
    static std::string string_in(toml::node const& node, char const* key) {
        if (!node.is_string())
            complain(node, "'" + std::string(key) + "' is to be a text in quotes");
        return node.as_string()->get();
    }

private:
    toml::table const& table;
    std::string name;
    std::set<std::string> known;
};

/// The value as a table; `what` names it in the complaint that it is none.
inline toml::table const& table_in(toml::node const& node, char const* what) {
    if (!node.is_table())
        complain(node, std::string(what) + " is to be a table");
    return *node.as_table();
}

/// Reads the table of that name, when there is one, and sees to it that nothing else stands there.
template <class action>
void in_section(section& whole, char const* key, action&& read) {
    if (toml::node const* const node = whole.find(key)) {
        section one(table_in(*node, key), std::string("[") + key + "]");
        read(one);
        one.nothing_else();
    }
}

}  // namespace fxsphone
