"""Types lines and a tab into a real shell on a terminal, and prints what the shell makes of them.

Call: complete.py SHELL FOLDER, with a JSON list of lines on standard input. FOLDER has the completion scripts
xmla-import.bash, functions/_xmla-import and xmla-import.fish; its folder "files" becomes the working directory. Prints a JSON list of
{"offered": [...], "words": [...], "shown": "..."}: what is offered at the end of the line, the words of the line after
the tab, and what the terminal shows. SHELL is bash, fish, zsh, or zsh-eval, where the script is evaluated.
"""

import json
import os
import pty
import select
import signal
import subprocess
import sys
import time

REPORT_ZSH = (
    "compadd() { local -a hits; local ret; builtin compadd \"$@\"; ret=$?;"
    " if ! ((${@[(I)-[OAD]*]})); then builtin compadd -O hits \"$@\";"
    " ((! $#hits)) || print -rl -- offered\\ $^hits >>../report; fi; return ret }"
)
START_ZSH = "PS1= PS2= RPS1=; setopt nobeep; fpath=($HOME/functions $fpath); autoload -Uz compinit; compinit -u -d ../dump"
SETUP = {
    "bash": [
        "PS1= PS2=; bind 'set bell-style none'; source ../xmla-import.bash",
        "hook() { local offered; _xmla_import \"$@\"; offered=(\"${COMPREPLY[@]}\");"
        " [[ ${#offered[@]} -eq 0 ]] || printf 'offered %s\\n' \"${offered[@]}\" >>../report; }",
        "complete -F hook xmla-import",
    ],
    "zsh": [START_ZSH, REPORT_ZSH],
    "zsh-eval": [START_ZSH + '; eval "$(xmla-import completion zsh)"', REPORT_ZSH],
}


class Terminal:
    """An interactive shell."""

    def __init__(self, shell):
        arguments = {"bash": ["bash", "--norc", "--noprofile", "-i"], "zsh": ["zsh", "-f", "-i"]}[shell.split("-")[0]]
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.environ.update(TERM="vt100", HOME=HOME, HISTFILE="", COLUMNS="400", INPUTRC="/dev/null")
            os.execvp(arguments[0], arguments)
        self.shown = b""

    def type(self, text):
        data = text.encode()
        while data:
            self.read(0)
            data = data[os.write(self.fd, data):]

    def read(self, seconds):
        while select.select([self.fd], [], [], seconds)[0]:
            try:
                self.shown += os.read(self.fd, 65536)
            except OSError:
                return
            seconds = 0

    def report(self):
        """Waits for the end of the report, and takes it."""
        limit = time.monotonic() + 20
        self.type("echo end >>../report\r")
        while time.monotonic() < limit:
            self.read(0.005)
            if os.path.exists("../report"):
                with open("../report", encoding="utf-8") as file:
                    lines = file.read().splitlines()
                if "end" in lines:
                    os.remove("../report")
                    return [line for line in lines if line != "end"]
        raise SystemExit("the shell does not answer; it showed: " + self.shown.decode(errors="replace"))

    def close(self):
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)


def in_terminal(shell, lines):
    terminal = Terminal(shell)
    try:
        for line in SETUP[shell]:
            terminal.type(line + "\r")
        terminal.report()
        for line in lines:
            # After the tab, the line becomes the arguments of printf.
            terminal.type(line + "\t\x01>>../report printf 'word %s\\n' \x05\r")
            terminal.shown = b""
            report = terminal.report()
            yield {
                "offered": [each[8:] for each in report if each.startswith("offered ")],
                "words": [each[5:].rstrip("/") for each in report if each.startswith("word ")],
                "shown": terminal.shown.decode(errors="replace"),
            }
    finally:
        terminal.close()


def in_fish(lines):
    for line in lines:
        command = "source ../xmla-import.fish; complete -C $argv[1]"
        run = subprocess.run(["fish", "--no-config", "-c", command, line], capture_output=True, text=True, check=True,
                             env={**os.environ, "HOME": HOME})
        if run.stderr:
            raise SystemExit(run.stderr)
        offered = [each.split("\t")[0] for each in run.stdout.splitlines()]
        words = line.split(" ")
        if len(offered) == 1:
            words[-1] = offered[0].rstrip("/")
        yield {"offered": offered, "words": words, "shown": run.stdout}


shell, folder = sys.argv[1:]
HOME = os.path.abspath(folder)
os.chdir(HOME + "/files")
lines = json.load(sys.stdin)
json.dump(list(in_fish(lines) if shell == "fish" else in_terminal(shell, lines)), sys.stdout)
