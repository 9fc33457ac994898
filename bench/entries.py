"""Data directories with many entries."""

DEPTH = 6


def make_entries(top, entries, tree):
    """A directory with so many entries: only files, or a tree of which a tenth is directories."""
    directories = [top]
    top.mkdir()
    while tree and len(directories) - 1 + DEPTH <= max(DEPTH, entries // 10):
        branch = top
        for level in range(1, DEPTH + 1):
            branch = branch / f"level {level} {len(directories):05}"
            branch.mkdir()
            directories.append(branch)
    for index in range(entries - len(directories) + 1):
        (directories[index % len(directories)] / f"image{index:06}.png").touch()
