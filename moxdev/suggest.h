// "Did you mean": the known names closest to what a person typed.
#pragma once

#include <absl/strings/ascii.h>
#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace moxdev {

// Edit distance (insertions, deletions, substitutions), letter case ignored.
inline std::size_t edit_distance(const std::string& a, const std::string& b)
{
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            const bool same = absl::ascii_toupper(static_cast<unsigned char>(a[i - 1])) ==
                              absl::ascii_toupper(static_cast<unsigned char>(b[j - 1]));
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Up to `most` of `known` that are close to `typed`: names it is a prefix of
// (or that are a prefix of it) first, then by edit distance, at most a third
// of the typed length (and at least 2) away. Ties keep the order of `known`.
inline std::vector<std::string> closest_names(const std::string& typed, const std::vector<std::string>& known,
                                              std::size_t most = 5)
{
    auto upper = [](const std::string& text) { return absl::AsciiStrToUpper(text); };
    const std::string wanted = upper(typed);
    // Nothing much longer than every known name is a near miss of one.
    std::size_t longest = 0;
    for (const std::string& name : known)
        longest = std::max(longest, name.size());
    if (wanted.empty() || wanted.size() > 2 * longest + 2)
        return {};
    const std::size_t limit = std::max<std::size_t>(2, wanted.size() / 3);
    struct CANDIDATE {
        std::size_t rank;
        std::size_t order;
        const std::string* name;
    };
    std::vector<CANDIDATE> candidates;
    for (std::size_t i = 0; i < known.size(); ++i) {
        const std::string name = upper(known[i]);
        if (name == wanted)
            continue;
        const bool prefix = name.compare(0, wanted.size(), wanted) == 0 || wanted.compare(0, name.size(), name) == 0;
        // The distance is at least the difference of the lengths: names far
        // shorter or longer are not measured, so a long input costs no more
        // than a short one.
        const std::size_t apart =
            name.size() > wanted.size() ? name.size() - wanted.size() : wanted.size() - name.size();
        const std::size_t distance = prefix || apart > limit ? apart : edit_distance(wanted, name);
        if (prefix || distance <= limit)
            candidates.push_back({prefix ? 0 : distance, i, &known[i]});
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const CANDIDATE& a, const CANDIDATE& b) { return a.rank < b.rank; });
    std::vector<std::string> result;
    for (const CANDIDATE& candidate : candidates) {
        if (result.size() == most)
            break;
        if (std::find(result.begin(), result.end(), *candidate.name) == result.end())
            result.push_back(*candidate.name);
    }
    return result;
}

// " (did you mean A, B or C?)", or "" when nothing is close.
inline std::string did_you_mean(const std::string& typed, const std::vector<std::string>& known)
{
    const std::vector<std::string> names = closest_names(typed, known);
    if (names.empty())
        return "";
    std::string text = " (did you mean ";
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    return text + "?)";
}

} // namespace moxdev
