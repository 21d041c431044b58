#include <filesystem>
#include <iostream>

#include <gmock/gmock.h>

/// The tests fill and wipe fixed paths of the system they run on, which must be a private one.
int main(int argc, char** argv) {
    if (!std::filesystem::exists("/run/sim/bin")) {
        std::cerr << "Run the tests in a private root: sim/enter " << argv[0] << '\n';
        return 2;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
