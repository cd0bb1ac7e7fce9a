// The two files the tool reads that an operator writes by hand: the board
// file and the simulator's state file. Each input is offered as both. A file
// either loads or is refused with the loader's own error; a state that loads
// must answer every request the firmware knows.
#include "Board.h"
#include "Firmware.h"
#include "ScratchFolder.h"
#include "StateError.h"
#include "StateStore.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace {

void loadBoard(const std::string& text)
{
    try {
        static_cast<void>(partmode::Board::load(partmode::fuzz::scratchFolder().write("board.json", text)));
    } catch (const std::runtime_error&) {
        // Refused with a reason, as the board loader promises.
    }
}

void loadState(const std::string& text)
{
    const auto path = partmode::fuzz::scratchFolder().write("firmware.json", text);
    try {
        partmode::sim::StateStore(path).transact([](partmode::sim::FirmwareState&) { return false; });
    } catch (const partmode::sim::StateError&) {
        return;
    }
    // Every request, for a defined and an undefined partition or unit, with
    // the parameter bytes of a plausible change.
    const partmode::sim::Firmware firmware(path);
    for (const std::uint8_t target : {0, 200}) {
        for (const auto& route : partmode::sim::Firmware::routes()) {
            partmode::wire::Bytes request{partmode::wire::kOemHeader};
            for (unsigned int i = 0; i < route.request->parameterBytes; ++i) {
                request.push_back(i == 0 ? target : 1);
            }
            try {
                static_cast<void>(firmware.handle(route.request->netFn, route.request->command, request));
            } catch (const partmode::sim::StateError&) {
            }
        }
        // The state file may have been rewritten by a change; start again.
        partmode::fuzz::scratchFolder().write("firmware.json", text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    loadBoard(text);
    loadState(text);
    return 0;
}
