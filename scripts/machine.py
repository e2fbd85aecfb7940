"""The machine on which programs run: the one that CORVID_WSC_BITS and CORVID_WSC_PREFIX name, as common.sh has it."""
import pathlib
import subprocess

HERE = pathlib.Path(__file__).resolve().parent


def installed():
    """Where the suite and its log folder are."""
    text = subprocess.run(["bash", "-c", 'source "$1" && printf "%s\\n" "$INSTALL_FOLDER" "$LOG_FOLDER"', "-", HERE / "common.sh"],
                          stdin=subprocess.DEVNULL, capture_output=True, check=True, text=True).stdout
    return [pathlib.Path(line) for line in text.splitlines()]
