#include "agentSignals.h"
#include "memoryFile.h"
#include "rig.h"
#include "smbiosImage.h"
#include "tavSmbios.h"

#include <algorithm>
#include <stdexcept>

#include <sys/syscall.h>
#include <unistd.h>

using tavSmbios::TavSmbios;

/// Reads come in pieces.
extern "C" ssize_t pread(int fd, void* to, std::size_t length, off_t position) {
    return ::syscall(SYS_pread64, fd, to, std::min<std::size_t>(length, 3000), position);
}

namespace {

sim::SmbiosTable table(const char* family = "family") {
    sim::SmbiosTable result;
    result.addBios();
    result.addSystem({.product = "Server 1", .serialNumber = "S1  ", .family = family});
    result.addEnclosure("E1");
    result.addEnclosure("E2");
    result.addEnd();
    return result;
}

std::string systemString(const TavSmbios& tables,
                         unsigned char tavSmbios::SMBSystemInformation::*string) {
    const auto* const entry = tables.getFirstEntry(tavSmbios::smbios_type_SystemInformation);
    if (entry == nullptr) {
        return "";
    }
    const auto system = TavSmbios::record<tavSmbios::SMBSystemInformation>(*entry);
    return TavSmbios::getSmbiosStringS(entry, system.*string);
}

/// Every look-up there is; what they find is not the question, only that they come back.
void lookUpEverything(const TavSmbios& tables) {
    for (int type = 0; type <= 255; ++type) {
        const auto wanted = static_cast<tavSmbios::SmbiosEntryTypes>(type);
        tables.getEntryNumber(wanted);
        for (auto* entry = tables.getFirstEntry(wanted); entry != nullptr;
             entry = tables.getNextEntry(entry)) {
            for (unsigned index = 0; index <= 255; ++index) {
                TavSmbios::getSmbiosStringS(entry, static_cast<unsigned char>(index));
            }
        }
    }
    tavSmbios::isKestrelbox(tables);
}

constexpr std::size_t mebibyte = 0x100000;

/// Physical memory with the table at `tablePlace` and an entry point that says what it likes. A
/// second one, of an empty table, at the end must never count.
std::string memory(std::size_t size, std::size_t entryPlace, const sim::SmbiosTablePlace& says,
                   std::size_t tablePlace = 0xF0040) {
    sim::Bytes image(size);
    const auto put = [&image](const sim::Bytes& bytes, std::size_t place) {
        std::copy_n(bytes.begin(), std::min(bytes.size(), image.size() - place),
                    image.begin() + static_cast<std::ptrdiff_t>(place));
    };
    put(sim::smbiosEntryPoint2({.address = 0x80000}), (size - 32) / 16 * 16);
    put(sim::smbiosEntryPoint2(says), entryPlace);
    put(table().bytes(), tablePlace);
    return sim::memoryFile(image);
}

sim::SmbiosTablePlace truth(std::uint32_t address = 0xF0040) {
    return {.address = address, .length = table().bytes().size(), .structures = 5};
}

class Smbios : public Rig {
  public:
    void show(const std::string& file, const sim::Bytes& bytes) {
        writeFile(file, {bytes.begin(), bytes.end()});
    }
    std::string scratch() const { return paths.pidFile + ".scratch"; }
    static unsigned enclosures() {
        return TavSmbios().getEntryNumber(tavSmbios::smbios_type_SystemEnclosure);
    }
};

TEST_F(Smbios, readsEveryFormTheSame) {
    for (const auto form :
         {sim::SmbiosForm::sysfs2, sim::SmbiosForm::sysfs3, sim::SmbiosForm::legacy}) {
        sim::showSmbios(table(), form, paths);
        const TavSmbios tables;
        EXPECT_EQ(tables.getEntryNumber(tavSmbios::smbios_type_SystemEnclosure), 2U);
        EXPECT_EQ(tables.getEntryNumber(tavSmbios::smbios_type_EndOfTable), 1U);
        EXPECT_EQ(tables.getEntryNumber(tavSmbios::smbios_type_BaseBoard), 0U);
        EXPECT_EQ(systemString(tables, &tavSmbios::SMBSystemInformation::productName), "Server 1");
        EXPECT_EQ(systemString(tables, &tavSmbios::SMBSystemInformation::serialNumber), "S1");
        auto* const first = tables.getFirstEntry(tavSmbios::smbios_type_SystemEnclosure);
        ASSERT_NE(first, nullptr);
        EXPECT_STREQ(TavSmbios::getSmbiosString(first, 0), "");
        EXPECT_STREQ(TavSmbios::getSmbiosString(first, 200), "");
        auto* const second = tables.getNextEntry(first);
        ASSERT_NE(second, nullptr);
        EXPECT_EQ(tables.getNextEntry(second), nullptr);
    }
}

TEST_F(Smbios, withoutTablesThereIsNothingToFind) {
    const TavSmbios tables;
    EXPECT_EQ(tables.getFirstEntry(tavSmbios::smbios_type_SystemInformation), nullptr);
    EXPECT_EQ(tables.getNextEntry(nullptr), nullptr);
    EXPECT_FALSE(tavSmbios::isKestrelbox(tables));
}

/// The kernel refuses physical memory, as it does nowadays, or its table cannot be reached, or
/// reads as zeros; or no entry point lies in the first mebibyte, and the search would go on through
/// all.
TEST_F(Smbios, thePublishedTablesAreTheSecondChoice) {
    const auto family = [] {
        return systemString(TavSmbios(), &tavSmbios::SMBSystemInformation::family);
    };
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"/proc/self/mem", {}}, // alone an error
        {memory(3 * mebibyte, 0xF0000, truth(0x01000000)), {}},
        {memory(3 * mebibyte, 0xF0000, truth(0x00080000)), ""},
        {memory(3 * mebibyte, 2 * mebibyte, truth(0x00080000)), ""},
        {memory(3 * mebibyte, 2 * mebibyte, truth()), "family"}};
    const sim::SmbiosTable other = table("published");
    for (const auto& [physical, alone] : cases) {
        sim::showSmbios(other, sim::SmbiosForm::none, paths);
        paths.physicalMemory = physical;
        if (alone) {
            EXPECT_EQ(family(), *alone) << physical;
        } else {
            EXPECT_THROW(TavSmbios(), std::logic_error) << physical;
        }
        sim::showSmbios(other, sim::SmbiosForm::sysfs3, paths);
        paths.physicalMemory = physical;
        EXPECT_EQ(family(), "published") << physical;
        EXPECT_EQ(TavSmbios().getEntryPoint().tableLength, other.bytes().size());
        paths.smbiosTable = sim::memoryFile(sim::Bytes(other.bytes().size()));
        EXPECT_EQ(alone ? family() : "", alone.value_or("")) << "zeros are no table";
    }
    const agentSignals::Hold hold;
    EXPECT_EQ(::raise(SIGTERM), 0);
    EXPECT_EQ(family(), "") << "the agent is told to end";
    agentSignals::drop(SIGTERM);
}

/// The device of VMware ESXi shows the table right behind its entry point, and may end early.
TEST_F(Smbios, onEsxiTheDeviceIsReadInOnePiece) {
    kernelName = "VMkernel";
    paths.esxiSmbios = memory(0x1000, 0, truth(0xDEADBEEF), 31);
    EXPECT_EQ(enclosures(), 2U);
    paths.esxiSmbios = memory(table().bytes().size(), 0, truth(0xDEADBEEF), 31);
    lookUpEverything(TavSmbios());
    EXPECT_EQ(TavSmbios().getEntryNumber(tavSmbios::smbios_type_EndOfTable), 0U);
    EXPECT_EQ(TavSmbios().getEntryNumber(tavSmbios::smbios_type_BIOSInformation), 1U)
        << "none is made of what lies behind";
    kernelName = "other";
    EXPECT_THROW(TavSmbios(), std::logic_error);
}

TEST_F(Smbios, aWrongPublishedEntryPointIsNone) {
    sim::Bytes shortened = sim::smbiosEntryPoint2(table(), 0);
    shortened[4] = static_cast<unsigned char>(shortened[4] + shortened[30] + shortened[5] - 30);
    shortened[5] = 30;
    shortened.resize(30);
    sim::showSmbios(table(), sim::SmbiosForm::sysfs2, paths);
    paths.smbiosEntryPoint = scratch();
    for (const auto& form :
         {sim::smbiosEntryPoint2(table(), 0), shortened, sim::smbiosEntryPoint3(table(), 0)}) {
        show(scratch(), form);
        EXPECT_EQ(enclosures(), 2U);
        show(scratch(), {form.begin(), form.end() - 1});
        EXPECT_EQ(enclosures(), 0U);
        for (const std::size_t place : {0U, 5U, 6U, 7U}) {
            for (const int value : {form[place] ^ 0x21, 0}) { // a length of 0, too
                sim::Bytes wrong = form;
                wrong[place] = static_cast<unsigned char>(value);
                show(scratch(), wrong);
                EXPECT_EQ(enclosures(), 0U) << place;
            }
        }
    }
}

/// An entry point is found wherever it lies; its numbers are believed only as far as memory goes.
TEST_F(Smbios, entryPointsMayLie) {
    const std::size_t length = table().bytes().size();
    struct {
        std::size_t size, entryPlace;
        sim::SmbiosTablePlace says;
        int enclosures; // -1: an error
    } cases[] = {
        {0x3000, 4080, truth(8192), 2}, // it reaches into the next block
        {mebibyte + 0x123 + length, 0xF0000, truth(mebibyte + 0x123), 2}, // mapped
        {mebibyte + 0x123 + length - 1, 0xF0000, truth(mebibyte + 0x123), -1},
        {mebibyte, 0xF0000, {.address = 0xF0040, .length = 0, .structures = 5}, 0},
        {mebibyte, 0xF0000, {.address = 0xF0040, .length = 0xFFFF, .structures = 5}, -1},
        {mebibyte, 0xF0000, {.address = 0xF0040, .length = length, .structures = 0xFFFF}, 2},
        {mebibyte, 0xF0000, {.address = 0xF0040, .length = length, .structures = 0}, 0},
        {mebibyte, 0xF0000, truth(0xFFFF0), -1},
        {mebibyte, 0xF0000, truth(0x7FFFFFF0), -1},
        {mebibyte, 0xF0000, truth(0xFFFFFFF0), -1},
        {mebibyte, 0xF0000, {.address = 0xFFFFFFF0, .length = 0, .structures = 5}, -1}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.says.address);
        const std::size_t tablePlace = std::min<std::size_t>(one.says.address, one.size - 1);
        paths.physicalMemory = memory(one.size, one.entryPlace, one.says, tablePlace);
        if (one.enclosures < 0) {
            EXPECT_THROW(TavSmbios(), std::logic_error);
        } else {
            const TavSmbios tables;
            EXPECT_EQ(tables.getEntryPoint().tableLength, one.says.length);
            EXPECT_EQ(enclosures(), one.enclosures);
            lookUpEverything(tables);
        }
    }
}

/// A table cut anywhere, and with any byte changed, is read without harm.
TEST_F(Smbios, survivesEveryCutAndEveryFlip) {
    const sim::Bytes whole = table().bytes();
    sim::showSmbios(table(), sim::SmbiosForm::sysfs2, paths);
    paths.smbiosTable = scratch();
    sim::Bytes padded = whole;
    padded.resize(0x10001); // what is read in pieces ends with a single byte
    show(scratch(), padded);
    EXPECT_EQ(enclosures(), 2U);
    for (std::size_t place = 0; place < whole.size(); ++place) {
        show(scratch(), {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(place)});
        lookUpEverything(TavSmbios());
        for (const unsigned char value : sim::Bytes{0, 1, 2, 3, 0x7F, 0xFF}) {
            sim::Bytes flipped = whole;
            flipped[place] = value;
            show(scratch(), flipped);
            lookUpEverything(TavSmbios());
        }
    }
}

/// The same for the entry point: a wrong one is none, by either checksum.
TEST_F(Smbios, survivesEveryEntryPoint) {
    const sim::Bytes entry = sim::smbiosEntryPoint2(table(), 0xF0040);
    paths.physicalMemory = scratch();
    for (std::size_t place = 0; place < 2 * entry.size(); ++place) {
        sim::Bytes image = sim::smbiosPhysicalMemory(table());
        const std::size_t wrong = place % entry.size();
        image[0xF0000 + wrong] ^= 0x5AU;
        if (place != wrong && wrong >= 16) { // the outer one is right again
            image[0xF0004] =
                static_cast<unsigned char>(image[0xF0004] + entry[wrong] - image[0xF0000 + wrong]);
        }
        show(scratch(), image);
        EXPECT_EQ(enclosures(), 0U) << place;
    }
}

} // namespace
