// Images in the raw flash. A sector is compared before it is written, so what is stored already is neither erased nor
// written, and a write that was cut short is completed by doing the same again.
#include <fcntl.h>
#include <libmarl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "files.h"
#include "handlers.h"
#include "messages.h"
#include "partitions.h"
#include "progress.h"
#include "results.h"

namespace tool {
namespace {

constexpr uint32_t kFpgaBase = 0x4000000;  // no partition is reached from here on

// What part of the flash is meant.
struct Range {
    Target target;
    uint32_t offset;
    uint32_t length;

    uint32_t address() const { return target.address + offset; }
    uint32_t sectors() const { return (length + target.sector - 1) / target.sector; }
};

// The target of the command and, from --offset on, `length` bytes of it or, for 0, all that there are. Complaints
// are made here, before anything is touched.
Exit find_range(const Request& request, const char* name, uint32_t length, Range& out) {
    Partitions partitions;
    if (!partitions.read()) return failed_system("the partitions cannot be read");
    const Target* target = partitions.find(name);
    if (target == nullptr)
        return refused("there is no %s in flash; \"marl flash map\" lists what there is", name);
    out.target = *target;
    out.offset = request.number("--offset", 0);
    if (out.offset >= target->size) return refused("%s has %u bytes only", name, target->size);
    const uint32_t room = target->size - out.offset;
    out.length = length != 0 ? length : room;
    if (out.length > room) {
        return refused("%u bytes do not fit: %s has %u from %u on", out.length, name, room, out.offset);
    }
    const bool is_reached = target->is_fpga() || out.address() + out.length <= kFpgaBase;
    if (target->sector == 0 || !is_reached) return refused("%s is out of the library's reach", name);
    return kDone;
}

Exit check_alignment(const Range& range) {
    if (range.offset % range.target.sector == 0) return kDone;
    return refused("%u is not the start of a sector: they have %u bytes", range.offset, range.target.sector);
}

// The library's object, for as long as it is used. Its release lowers the upgrade flag whoever raised it, so one
// that another process raised is raised again.
class Flash {
  public:
    Flash() : was_raised_(is_flag_raised()) {
        const int32_t host_flash = 0;
        if (createRawFlash(&host_flash, &object_) != 0) object_ = nullptr;
    }
    ~Flash() { close(); }
    Flash(const Flash&) = delete;
    Flash& operator=(const Flash&) = delete;

    bool is_open() const { return object_ != nullptr; }

    // Complains of a release that failed.
    Exit close() {
        if (object_ == nullptr) return kDone;
        const bool is_others = is_flag_raised() && (was_raised_ || !has_changed_);
        const bool is_released = flash_release(object_) == 0;
        object_ = nullptr;
        if (is_others && set_upgrade_map() != 0)
            return failed("the upgrade flag, which another process had raised, is lowered");
        if (is_released) return kDone;
        return !is_others && check_upgrade_map() != 0 ? failed("the upgrade flag could not be lowered")
                                                      : failed("the flash could not be released in order");
    }

    // Whether anything was written or erased, or may have been by what then failed.
    bool has_changed() const { return has_changed_; }

    bool read(uint32_t address, uint8_t* out, uint32_t size) {
        return flash_read(object_, out, address, size) == static_cast<int>(size);
    }
    bool write(uint32_t address, const uint8_t* data, uint32_t size) {
        has_changed_ = true;
        return flash_write(object_, data, address, size) >= 0;
    }
    bool erase(uint32_t address, uint32_t size) {
        has_changed_ = true;
        return flash_erase(object_, address, size) == 0;
    }

  private:
    static bool is_flag_raised() { return check_upgrade_map() == 1; }

    RawFlash* object_ = nullptr;
    bool was_raised_;
    bool has_changed_ = false;
};

// Room for one sector of the image and what is stored in its place.
class Sectors {
  public:
    explicit Sectors(uint32_t size) : wanted(allocate(size)), stored(allocate(size)) {}
    ~Sectors() {
        free(wanted);
        free(stored);
    }
    Sectors(const Sectors&) = delete;
    Sectors& operator=(const Sectors&) = delete;

    bool is_there() const { return wanted != nullptr && stored != nullptr; }

    uint8_t* const wanted;
    uint8_t* const stored;

  private:
    static uint8_t* allocate(uint32_t size) { return static_cast<uint8_t*>(malloc(size)); }
};

// What is done to each sector of a range.
enum class Work { Compare, Update, Write };
constexpr const char* kNames[] = {"comparing", "writing", "writing"};

// One run over the sectors of an image.
class Pass {
  public:
    Pass(Flash& flash, const File& image, const Range& range, Sectors& sectors)
        : flash_(flash), image_(image), range_(range), sectors_(sectors) {}

    Exit run(Work work) {
        Progress progress(kNames[static_cast<int>(work)], range_.length);
        progress_ = &progress;
        differing_ = done_ = 0;
        for (; done_ < range_.length && !is_interrupted(); progress.advance(size_)) {
            size_ = std::min(range_.target.sector, range_.length - done_);
            if (!image_.read_at(sectors_.wanted, size_, done_))
                return failed_system("the image cannot be read");
            if (const Exit status = do_sector(work); status != kDone) return status;
            done_ += size_;
        }
        return done_ < range_.length ? failed("interrupted after %u of %u bytes", done_, range_.length)
                                     : kDone;
    }

    // Sectors that differed and, in an update, have been written.
    uint32_t differing() const { return differing_; }

  private:
    Exit do_sector(Work work) {
        if (work == Work::Write) return write() ? kDone : incomplete("written");
        if (!read()) return incomplete("read");
        if (is_right()) return kDone;
        if (work == Work::Compare) return ++differing_, kDone;
        if (!write()) return incomplete("written");
        if (!read()) return incomplete("read back");
        if (!is_right()) return incomplete("as it was written");
        return ++differing_, kDone;
    }

    uint32_t address() const { return range_.address() + done_; }
    bool read() { return flash_.read(address(), sectors_.stored, size_); }
    bool write() {
        progress_->hide();
        return flash_.write(address(), sectors_.wanted, size_);
    }
    bool is_right() const { return memcmp(sectors_.stored, sectors_.wanted, size_) == 0; }

    Exit incomplete(const char* what) const {
        return failed("%s: the sector at %u is not %s", range_.target.name, range_.offset + done_, what);
    }

    Flash& flash_;
    const File& image_;
    const Range& range_;
    Sectors& sectors_;
    Progress* progress_ = nullptr;
    uint32_t differing_ = 0;
    uint32_t done_ = 0;
    uint32_t size_ = 0;
};

// An image and where it belongs, found and opened.
struct Job {
    explicit Job(const char* path) : image(path, O_RDONLY) {}

    File image;
    Range range{};
};

Exit open_job(const Request& request, Job& job) {
    struct stat info {};
    const char* path = request.word(0);
    if (!job.image.is_open() || fstat(job.image.descriptor(), &info) != 0) return failed_system("%s", path);
    if (!S_ISREG(info.st_mode)) return refused("%s is not a regular file", path);
    if (info.st_size == 0) return refused("%s is empty", path);
    if (static_cast<uint64_t>(info.st_size) > UINT32_MAX) return refused("%s is larger than any flash", path);
    const Exit status = find_range(request, request.word(1), static_cast<uint32_t>(info.st_size), job.range);
    return status == kDone ? check_alignment(job.range) : status;
}

// The FPGA takes nothing but a whole image: its first sector is written when the last one is.
Exit write_fpga(Pass& pass, uint32_t& differing) {
    if (const Exit status = pass.run(Work::Compare); status != kDone) return status;
    differing = pass.differing();
    if (differing == 0) return kDone;
    if (const Exit status = pass.run(Work::Write); status != kDone) return status;
    if (const Exit status = pass.run(Work::Compare); status != kDone) return status;
    return pass.differing() == 0 ? kDone
                                 : failed("%u sectors are not as they were written", pass.differing());
}

void show_range(const Range& range) {
    results::field("target", range.target.name);
    results::field("offset", range.offset);
    results::field("bytes", range.length);
    results::field("sectors", range.sectors());
}

}  // namespace

Exit flash_list(const Request&) {
    Partitions partitions;
    if (!partitions.read()) return failed_system("the partitions cannot be read");
    const results::JsonOnly structure;
    results::begin_list("partitions");
    for (int i = 0; i < partitions.count(); ++i) {
        const Target& target = partitions[i];
        results::print("mtd%-2d  0x%08x  %9u bytes  %6u each sector  %s\n", target.number, target.address,
                       target.size, target.sector, target.name);
        results::begin();
        results::field("number", target.number);
        results::field("name", target.name);
        results::field("address", target.address);
        results::field("size", target.size);
        results::field("sector", target.sector);
        results::end();
    }
    results::end_list();
    return kDone;
}

Exit flash_get(const Request& request) {
    Range range{};
    const char* path = request.word(1);
    if (path == nullptr && results::is_json()) return refused("flash read wants a FILE beside --json");
    if (const Exit status = find_range(request, request.word(0), request.number("--length", 0), range);
        status != kDone)
        return status;
    if (range.target.is_fpga() &&
        (check_alignment(range) != kDone || range.length % range.target.sector != 0))
        return refused("fpga is read in whole sectors of %u bytes", range.target.sector);
    watch_for_interrupts();
    Flash flash;
    Sectors sectors(range.target.sector);
    if (!flash.is_open() || !sectors.is_there()) return failed("the flash cannot be opened");
    // The file may be the last good copy: it is emptied when there is something to put into it.
    if (!flash.read(range.address(), sectors.stored, std::min(range.target.sector, range.length)))
        return failed("%s cannot be read", request.word(0));
    const File file(path != nullptr ? path : "/dev/null",
                    O_WRONLY | (path != nullptr ? O_CREAT | O_TRUNC : 0));
    if (!file.is_open()) return failed_system("%s", path);
    Progress progress("reading", range.length);
    for (uint32_t done = 0, size = 0; done < range.length; done += size) {
        size = std::min(range.target.sector, range.length - done);
        if (is_interrupted()) return failed("interrupted after %u of %u bytes", done, range.length);
        if (!flash.read(range.address() + done, sectors.stored, size))
            return failed("%s cannot be read", request.word(0));
        if (path == nullptr) {
            results::raw(sectors.stored, size);
            if (!results::flush()) return failed_system("standard output");
        }
        if (path != nullptr && !file.write_at(sectors.stored, size, done)) return failed_system("%s", path);
        progress.advance(size);
    }
    if (const Exit status = flash.close(); status != kDone) return status;
    const results::JsonOnly rest;
    show_range(range);
    return kDone;
}

Exit flash_put(const Request& request) {
    Job job(request.word(0));
    if (const Exit status = open_job(request, job); status != kDone) return status;
    const Target& target = job.range.target;
    if (target.is_fpga() && job.range.length != target.size)
        return refused("an image for fpga has %u bytes, not %u", target.size, job.range.length);
    watch_for_interrupts();
    Flash flash;
    Sectors sectors(target.sector);
    if (!flash.is_open() || !sectors.is_there()) return failed("the flash cannot be opened");
    Pass pass(flash, job.image, job.range, sectors);
    uint32_t written = 0;
    const Exit status = target.is_fpga() ? write_fpga(pass, written) : pass.run(Work::Update);
    if (!target.is_fpga()) written = pass.differing();
    const bool is_closed = flash.close() == kDone;
    if (status != kDone && !flash.has_changed()) return failed("nothing was written");
    // What the FPGA's writes have left alone is known to the library only.
    if (status != kDone && target.is_fpga())
        return failed("the image may not be whole; the same command writes what it lacks");
    if (status != kDone) {
        return failed(
            "the image may not be whole; the same command writes what it lacks (%u sectors were written)",
            written);
    }
    if (!is_closed) return failed("the image is whole all the same");
    const uint32_t sectors_of_image = job.range.sectors();
    results::print("%s: %u of %u sectors differed and were written, %u were right already\n", target.name,
                   written, sectors_of_image, sectors_of_image - written);
    const results::JsonOnly rest;
    show_range(job.range);
    results::field("written", written);
    results::field("unchanged", sectors_of_image - written);
    return kDone;
}

Exit flash_compare(const Request& request) {
    Job job(request.word(0));
    if (const Exit status = open_job(request, job); status != kDone) return status;
    if (job.range.target.is_fpga() && job.range.length % job.range.target.sector != 0)
        return refused("fpga is compared in whole sectors of %u bytes", job.range.target.sector);
    watch_for_interrupts();
    Flash flash;
    Sectors sectors(job.range.target.sector);
    if (!flash.is_open() || !sectors.is_there()) return failed("the flash cannot be opened");
    Pass pass(flash, job.image, job.range, sectors);
    if (const Exit status = pass.run(Work::Compare); status != kDone) return status;
    if (const Exit status = flash.close(); status != kDone) return status;
    results::print("%s: %u of %u sectors differ\n", job.range.target.name, pass.differing(),
                   job.range.sectors());
    const results::JsonOnly rest;
    show_range(job.range);
    results::field("differing", pass.differing());
    return pass.differing() == 0 ? kDone : kFailed;
}

Exit flash_clear(const Request& request) {
    Range range{};
    if (const Exit status = find_range(request, request.word(0), request.number("--length", 0), range);
        status != kDone)
        return status;
    if (range.target.is_fpga()) return refused("fpga cannot be erased: its writes do that");
    if (const Exit status = check_alignment(range); status != kDone) return status;
    if (range.length % range.target.sector != 0)
        return refused("%u bytes are no whole sectors: they have %u", range.length, range.target.sector);
    watch_for_interrupts();
    Flash flash;
    if (!flash.is_open()) return failed("the flash cannot be opened");
    Progress progress("erasing", range.length);
    for (uint32_t done = 0; done < range.length; done += range.target.sector) {
        if (is_interrupted()) return failed("interrupted after %u of %u bytes", done, range.length);
        progress.hide();
        if (!flash.erase(range.address() + done, range.target.sector))
            return failed("%s: the sector at %u is not erased", range.target.name, range.offset + done);
        progress.advance(range.target.sector);
    }
    if (const Exit status = flash.close(); status != kDone) return status;
    results::print("%s: %u sectors erased\n", range.target.name, range.sectors());
    const results::JsonOnly rest;
    show_range(range);
    return kDone;
}

}  // namespace tool
