// The first naming queries made from several threads at once. The naming
// images and the part-number indexes are built on first use; threads that all
// make their first query together must each wait for one construction and
// then get the same answers as a single thread.
//
// ctest runs every test in a process of its own, so these are the process's
// first queries; run alone (--gtest_filter='Threads.*'), they also are. Built
// with MOXDEV_TSAN=ON (scripts/build.sh --tsan), ThreadSanitizer checks every
// access on the way.
#include "test_support.h"

#include <atomic>
#include <thread>

namespace {

constexpr int THREADS = 8;
using ANSWERS = std::vector<std::vector<std::string>>;

// Every answer the naming queries give about each name, one text each. Each
// thread starts at a different name, so that threads make different first
// queries.
ANSWERS ask_all(const std::vector<std::string>& names, std::size_t first)
{
    ANSWERS answers(names.size());
    for (std::size_t k = 0; k < names.size(); ++k) {
        const std::size_t i = (first + k) % names.size();
        const std::string& name = names[i];
        const std::string package = MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(name, false);
        const std::string device = MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(name, false, false);
        answers[i] = {package,
                      device,
                      MOXDEV_DEVICE_GRAMMAR_MGR::get_family(name),
                      MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_part_pcf(name),
                      MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_part_pcf(device),
                      MOXDEV_MGR::get_opn(DWORD(i * 13)),
                      MOXDEV_MGR::get_opn_from_hash(MOXDEV_MGR::get_opn_hash(name)),
                      MOXDEV_MGR::get_possible_full_name(package),
                      std::to_string(MOXDEV_MGR::get_opn_enum(name))};
    }
    return answers;
}

} // namespace

TEST(Threads, FirstNamingQueriesFromManyThreadsAgree)
{
    // Parts spread over the catalogue.
    std::vector<std::string> names;
    for (int part = DEV_PART_INVALID + 1; part < DEV_PART_GENERIC; part += 997)
        names.push_back(dstr_get_user_string(part));
    ASSERT_GE(names.size(), 8u);

    std::vector<ANSWERS> results(THREADS);
    std::vector<std::string> failures(THREADS);
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (!go.load())
                std::this_thread::yield();
            try {
                results[t] = ask_all(names, t);
            } catch (const std::exception& error) {
                failures[t] = error.what();
            }
        });
    }
    while (ready.load() < THREADS)
        std::this_thread::yield();
    go = true;
    for (std::thread& thread : threads)
        thread.join();

    const ANSWERS expected = ask_all(names, 0);
    for (int t = 0; t < THREADS; ++t) {
        EXPECT_EQ(failures[t], "") << "thread " << t;
        EXPECT_EQ(results[t], expected) << "thread " << t;
    }
    // The answers are real ones, not empty results of a half-built table.
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(expected[i][6], names[i]) << "the hash of a part leads back to it";
        EXPECT_NE(expected[i][1], "");
        EXPECT_NE(expected[i][7], "");
    }
}
