#include "agentSignals.h"
#include "memoryFile.h"
#include "rig.h"
#include "smbiosImage.h"
#include "tavSmbios.h"

#include <stdexcept>

using tavSmbios::TavSmbios;

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

class Smbios : public Rig {
  public:
    std::string scratch() const { return paths.pidFile + ".scratch"; }
    void showMemory(const sim::Bytes& image) { paths.physicalMemory = sim::memoryFile(image); }
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
    const auto memory = [](const sim::Bytes& image, std::size_t entryPlace, unsigned address) {
        const sim::Bytes entry = sim::smbiosEntryPoint2(table(), address);
        sim::Bytes bytes = image;
        std::copy(entry.begin(), entry.end(), bytes.begin() + static_cast<long>(entryPlace));
        return sim::memoryFile(bytes);
    };
    sim::Bytes deep = sim::smbiosPhysicalMemory(table());
    deep[0xF0000] = 0; // no entry point here
    deep.resize(0x300000);
    const std::string deepMemory = memory(deep, 0x200000, 0xF0040);
    struct {
        std::string memory;
        std::optional<std::string> alone; // none: an error
    } cases[] = {{"/proc/self/mem", {}},
                 {memory(deep, 0xF0000, 0x01000000), {}},
                 {memory(deep, 0xF0000, 0x00080000), ""},
                 {memory(deep, 0x200000, 0x00080000), ""},
                 {deepMemory, "family"}};
    const sim::SmbiosTable other = table("published");
    for (const auto& one : cases) {
        sim::showSmbios(other, sim::SmbiosForm::none, paths);
        paths.physicalMemory = one.memory;
        if (one.alone) {
            EXPECT_EQ(family(), *one.alone) << one.memory;
        } else {
            EXPECT_THROW(TavSmbios(), std::logic_error) << one.memory;
        }
        sim::showSmbios(other, sim::SmbiosForm::sysfs3, paths);
        paths.physicalMemory = one.memory;
        EXPECT_EQ(family(), "published") << one.memory;
        paths.smbiosTable = sim::memoryFile(sim::Bytes(other.bytes().size()));
        EXPECT_EQ(one.alone ? family() : "", one.alone.value_or("")) << "zeros are no table";
    }
    const agentSignals::Hold hold;
    EXPECT_EQ(::raise(SIGTERM), 0);
    EXPECT_EQ(family(), "") << "the agent is told to end";
    ::signal(SIGTERM, SIG_IGN); // which takes it back
    ::signal(SIGTERM, SIG_DFL);
}

/// The device of VMware ESXi shows the table right behind its entry point, and may end early.
TEST_F(Smbios, onEsxiTheDeviceIsReadInOnePiece) {
    kernelName = "VMkernel";
    sim::Bytes image = sim::smbiosEntryPoint2(table(), 0xDEADBEEF);
    const sim::SmbiosTable content = table();
    image.insert(image.end(), content.bytes().begin(), content.bytes().end());
    paths.esxiSmbios = sim::memoryFile(image);
    EXPECT_EQ(TavSmbios().getEntryNumber(tavSmbios::smbios_type_SystemEnclosure), 2U);
    image.resize(image.size() - 30);
    paths.esxiSmbios = sim::memoryFile(image);
    lookUpEverything(TavSmbios());
    EXPECT_EQ(TavSmbios().getEntryNumber(tavSmbios::smbios_type_EndOfTable), 0U);
    kernelName = "other";
    EXPECT_THROW(TavSmbios(), std::logic_error);
}

TEST_F(Smbios, aWrongPublishedEntryPointIsNone) {
    sim::Bytes shortened = sim::smbiosEntryPoint2(table(), 0);
    shortened[4] = static_cast<unsigned char>(shortened[4] + shortened[30] + shortened[5] - 30);
    shortened[5] = 30;
    shortened.resize(30);
    for (const auto& form :
         {sim::smbiosEntryPoint2(table(), 0), shortened, sim::smbiosEntryPoint3(table(), 0)}) {
        paths.smbiosTable = sim::memoryFile(table().bytes());
        paths.smbiosEntryPoint = sim::memoryFile(form);
        EXPECT_NE(TavSmbios().getFirstEntry(tavSmbios::smbios_type_SystemEnclosure), nullptr);
        std::vector<sim::Bytes> wrong{{form.begin(), form.end() - 1}};
        for (const std::size_t place : {0U, 5U, 6U, 7U}) {
            for (const int value : {form[place] ^ 0x21, 0}) { // a length of 0, too
                wrong.push_back(form);
                wrong.back()[place] = static_cast<unsigned char>(value);
            }
        }
        for (const sim::Bytes& bytes : wrong) {
            paths.smbiosEntryPoint = sim::memoryFile(bytes);
            EXPECT_EQ(TavSmbios().getFirstEntry(tavSmbios::smbios_type_SystemEnclosure), nullptr);
        }
    }
}

TEST_F(Smbios, findsAnEntryPointThatReachesIntoTheNextBlock) {
    sim::Bytes image(std::size_t{3} * 4096);
    const sim::Bytes entry = sim::smbiosEntryPoint2(table(), 8192);
    std::copy(entry.begin(), entry.end(), image.begin() + 4080);
    const sim::SmbiosTable content = table();
    std::copy(content.bytes().begin(), content.bytes().end(), image.begin() + 8192);
    showMemory(image);
    EXPECT_EQ(TavSmbios().getEntryNumber(tavSmbios::smbios_type_SystemEnclosure), 2U);
}

TEST_F(Smbios, aTableAboveOneMebibyteIsMapped) {
    sim::Bytes image = sim::smbiosPhysicalMemory(table());
    image.resize(0x100000 + 0x800);
    const sim::Bytes entry = sim::smbiosEntryPoint2(table(), 0x100123);
    std::copy(entry.begin(), entry.end(), image.begin() + 0xF0000);
    const sim::SmbiosTable content = table();
    std::copy(content.bytes().begin(), content.bytes().end(), image.begin() + 0x100123);
    showMemory(image);
    EXPECT_EQ(TavSmbios().getEntryNumber(tavSmbios::smbios_type_SystemEnclosure), 2U);
}

/// The entry point's numbers are believed only as far as the file goes.
TEST_F(Smbios, entryPointsMayLie) {
    struct {
        std::uint32_t address;
        std::uint16_t length, count;
        bool read;
    } cases[] = {{0xF0040, 0, 5, true},        {0xF0040, 0xFFFF, 5, false},
                 {0xF0040, 100, 0xFFFF, true}, {0xF0040, 100, 0, true},
                 {0xFFFF0, 100, 5, false},     {0x7FFFFFF0, 100, 5, false},
                 {0xFFFFFFF0, 100, 5, false}};
    for (const auto& one : cases) {
        sim::Bytes image = sim::smbiosPhysicalMemory(table());
        const sim::Bytes entry = sim::smbiosEntryPoint2(
            {.address = one.address, .length = one.length, .structures = one.count});
        std::copy(entry.begin(), entry.end(), image.begin() + 0xF0000);
        showMemory(image);
        if (one.read) {
            const TavSmbios tables;
            EXPECT_EQ(tables.getEntryPoint().tableLength, one.length);
            lookUpEverything(tables);
        } else {
            EXPECT_THROW(TavSmbios(), std::logic_error) << one.address << " " << one.length;
        }
    }
}

/// A table cut anywhere, and with any byte changed, is read without harm.
TEST_F(Smbios, survivesEveryCutAndEveryFlip) {
    const sim::Bytes whole = table().bytes();
    sim::showSmbios(table(), sim::SmbiosForm::sysfs2, paths);
    for (std::size_t place = 0; place < whole.size(); ++place) {
        writeFile(scratch(), std::string(whole.begin(), whole.begin() + static_cast<long>(place)));
        paths.smbiosTable = scratch();
        lookUpEverything(TavSmbios());
        for (const unsigned char value : sim::Bytes{0, 1, 2, 3, 0x7F, 0xFF}) {
            std::string flipped(whole.begin(), whole.end());
            flipped[place] = static_cast<char>(value);
            writeFile(scratch(), flipped);
            lookUpEverything(TavSmbios());
        }
    }
}

/// The same for the entry point: a wrong one is none, by either checksum.
TEST_F(Smbios, survivesEveryEntryPoint) {
    const sim::Bytes entry = sim::smbiosEntryPoint2(table(), 0xF0040);
    for (std::size_t place = 0; place < 2 * entry.size(); ++place) {
        sim::Bytes image = sim::smbiosPhysicalMemory(table());
        const std::size_t wrong = place % entry.size();
        image[0xF0000 + wrong] ^= 0x5AU;
        if (place != wrong && wrong >= 16) { // the outer one is right again
            image[0xF0004] =
                static_cast<unsigned char>(image[0xF0004] + entry[wrong] - image[0xF0000 + wrong]);
        }
        writeFile(scratch(), std::string(image.begin(), image.end()));
        paths.physicalMemory = scratch();
        EXPECT_EQ(TavSmbios().getFirstEntry(tavSmbios::smbios_type_SystemInformation), nullptr)
            << place;
    }
}

} // namespace
