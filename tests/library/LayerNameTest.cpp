// The package in a layer's name, by the pattern and without it.

#include <gtest/gtest.h>
#include <pthread.h>

#include <random>
#include <regex>

#include "perf/LayerName.h"

using namespace android::cindral;

TEST(LayerName, Package_IsWhatStandsBeforeTheFirstSlash) {
    struct Case {
        const char* name;
        const char* package;
    };
    for (const Case& c :
         {Case{"SurfaceView[com.example.game/com.example.game.Main]#42", "com.example.game"},
          Case{"SurfaceView[com.example.game/Main](BLAST)#7", "com.example.game"},
          Case{"SurfaceView[no slash#12", "no slash"}, Case{"SurfaceView[a#1#2", "a#1"},
          Case{"SurfaceView[a/b]#", ""}, Case{"SurfaceView[a/b]#4 ", ""},
          Case{"SurfaceView[a/\n]#4", ""}, Case{"SurfaceView[/b]#4", ""},
          Case{"SurfaceView - a/b#0", ""}, Case{" SurfaceView[a/b]#4", ""}, Case{"", ""}}) {
        EXPECT_EQ(packageNameOf(c.name), c.package) << c.name;
    }
}

TEST(LayerName, WithAndWithoutThePattern_TheAnswerIsTheSame) {
    const std::regex pattern(kLayerNamePattern);
    const std::string pieces[] = {
            "SurfaceView[", "SurfaceView", "[",  "a",  "com.b", "/",      "#", "1",
            "23",           "]",           "\n", "\r", " ",     "(BLAST)"};
    std::mt19937 random(1);
    int matches = 0;
    for (int i = 0; i < 5'000; ++i) {
        std::string name = random() % 4 != 0 ? "SurfaceView[" : "";
        const unsigned length = random() % 8;
        for (unsigned j = 0; j < length; ++j) name += pieces[random() % std::size(pieces)];
        if (random() % 2 == 0) name += "#7";
        std::smatch match;
        const std::string expected =
                std::regex_match(name, match, pattern) ? match[1].str() : std::string();
        ASSERT_EQ(packageNameOf(name), expected) << name;
        ASSERT_EQ(packageNameOfLongName(name), expected) << name;
        matches += expected.empty() ? 0 : 1;
    }
    EXPECT_GT(matches, 300);
}

TEST(LayerName, OfAnyLength_FitsIntoAStackOfOneMegabyte) {
    const auto readLongNames = [](void*) -> void* {
        for (const size_t length : {400, 500, 600, 5'000, 2'000'000}) {
            const std::string package(length, 'p');
            EXPECT_EQ(packageNameOf("SurfaceView[" + package + "/x]#1"), package);
            EXPECT_EQ(packageNameOf("SurfaceView[" + package), "");
        }
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 1 << 20);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, readLongNames, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}
