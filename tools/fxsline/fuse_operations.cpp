// The functions that libfuse calls: each finds the file_server and the file and hands over. Requests that don't
// appear here are refused by libfuse itself.
#include <cerrno>

#include "tools/fxsline/file_server.h"

namespace fxsline {

struct operations_table {
    static file_server& server(fuse_req_t request) { return *static_cast<file_server*>(fuse_req_userdata(request)); }

    /// The kernel names only inodes that it was given, and opens, reads, ... no directory through these.
    static mount_file const& file(fuse_req_t request, fuse_ino_t inode) { return *server(request).files.find(inode); }

    static void init(void*, fuse_conn_info* connection) {
        // Requests and answers are a few hundred bytes: copying them is cheaper than passing them through pipes.
        connection->want &= ~static_cast<unsigned>(FUSE_CAP_SPLICE_READ | FUSE_CAP_SPLICE_WRITE | FUSE_CAP_SPLICE_MOVE);
        connection->max_readahead = 0;
    }

    static void lookup(fuse_req_t request, fuse_ino_t, char const* name) { server(request).lookup(request, name); }

    static void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
        server(request).attributes(request, inode);
    }

    /// Nothing changes: "echo 1 > clock" wants to truncate the file first.
    static void setattr(fuse_req_t request, fuse_ino_t inode, struct stat*, int, fuse_file_info*) {
        server(request).attributes(request, inode);
    }

    static void readdir(fuse_req_t request, fuse_ino_t, size_t bytes, off_t offset, fuse_file_info*) {
        server(request).list(request, bytes, offset);
    }

    static void open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
        server(request).open(request, file(request, inode), *info);
    }

    static void release(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
        server(request).release(file(request, inode), *info);
        fuse_reply_err(request, 0);
    }

    static void read(fuse_req_t request, fuse_ino_t inode, size_t bytes, off_t offset, fuse_file_info* info) {
        server(request).read(request, file(request, inode), bytes, offset, *info);
    }

    static void write(fuse_req_t request, fuse_ino_t inode, char const* bytes, size_t count, off_t,
                      fuse_file_info* info) {
        server(request).write(request, file(request, inode), {bytes, count}, *info);
    }

    static void poll(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info, fuse_pollhandle* notify) {
        server(request).poll(request, file(request, inode), *info, notify);
    }

    /// The driver's requests have no argument. Their numbers, made for MIPS, read on a PC as "no direction, 8192
    /// bytes"; without a direction the kernel copies nothing, so the argument is ignored on every machine.
    static void ioctl(fuse_req_t request, fuse_ino_t inode, unsigned number, void*, fuse_file_info*, unsigned flags,
                      void const*, size_t, size_t) {
        if ((flags & FUSE_IOCTL_DIR) != 0)
            fuse_reply_err(request, ENOTTY);
        else
            server(request).ioctl(request, file(request, inode), number);
    }
};

fuse_lowlevel_ops const& file_server::operations() {
    static fuse_lowlevel_ops const table = [] {
        fuse_lowlevel_ops ops{};
        ops.init = operations_table::init;
        ops.lookup = operations_table::lookup;
        ops.getattr = operations_table::getattr;
        ops.setattr = operations_table::setattr;
        ops.readdir = operations_table::readdir;
        ops.open = operations_table::open;
        ops.release = operations_table::release;
        ops.read = operations_table::read;
        ops.write = operations_table::write;
        ops.poll = operations_table::poll;
        ops.ioctl = operations_table::ioctl;
        return ops;
    }();
    return table;
}

}  // namespace fxsline
