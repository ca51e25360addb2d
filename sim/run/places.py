"""Where things are: the runner lies in a source tree, or in the folder of an installed simulated board."""

import os

HOME = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BOARDS = os.path.join(HOME, "boards")
IS_INSTALLED = os.path.exists(os.path.join(HOME, "sim-launch"))
COMMAND = "marl-sim" if IS_INSTALLED else "scripts/run"


def programs(preset):
    """The folder with the launcher and the daemon. What is installed was built once, of no preset."""
    return HOME if IS_INSTALLED else os.path.join(os.path.dirname(HOME), "build", preset)


def usage(text):
    """The usage of the command as it is called here: nothing that is installed is chosen by its build."""
    if not IS_INSTALLED:
        return text
    lines = [line for line in text.splitlines() if "--preset" not in line]
    width = len("scripts/run") - len(COMMAND)
    lines = [line.replace("scripts/run", COMMAND).replace("  boots", " " * width + "  boots")
             .replace("  runs a", " " * width + "  runs a") for line in lines]
    return "\n".join(lines).replace("is a path, or the name of a program in the build directory or its tests.", "is a path.")
