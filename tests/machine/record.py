"""The log of a run: text with pictures, for whoever was not there."""

import html
import time


class Record:
    """Writes log.txt and log.html into a folder while the run goes on."""

    def __init__(self, folder):
        self.folder = folder
        self.start = time.monotonic()
        self.failures = []
        self.parts = []
        self.pictures = 0
        self.step_name = ""
        self.steps = []

    def _clock(self):
        seconds = int(time.monotonic() - self.start)
        return f"{seconds // 60:02d}:{seconds % 60:02d}"

    def say(self, text, mark="    "):
        line = f"{self._clock()}  {mark}  {text}"
        print(line, flush=True)
        with open(self.folder / "log.txt", "a", encoding="utf-8") as log:
            log.write(line + "\n")
        self.parts.append(f'<p class="{mark.strip() or "plain"}">{html.escape(line)}</p>')
        self._write()

    def step(self, name):
        self.step_name = name
        self.steps.append([name, time.monotonic(), None, True])
        self.parts.append(f"<h2>{html.escape(name)}</h2>")
        self.say(name, "----")

    def end_step(self):
        step = self.steps[-1]
        step[2] = time.monotonic() - step[1]
        self.say(f"took {step[2]:.0f} s")

    def verdict(self, holds, text):
        """Notes whether something is as it should be; what was found belongs into the text."""
        if not holds:
            self.failures.append(f"{self.step_name}: {text}")
            if self.steps:
                self.steps[-1][3] = False
        self.say(text, " ok " if holds else "FAIL")
        return holds

    def show(self, picture, caption):
        self.pictures += 1
        name = f"{self.pictures:02d}-{caption.lower().replace(' ', '-')}.png"
        picture.save(self.folder / name)
        self.say(f"picture {name}")
        self.parts.append(f'<figure><img src="{name}" width="800" height="480" alt=""><figcaption>'
                          f"{html.escape(caption)}</figcaption></figure>")
        self._write()

    def close(self):
        for name, _, duration, good in self.steps:
            self.say(f"{duration or 0:5.0f} s  {name}", " ok " if good else "FAIL")
        took = time.monotonic() - self.start
        self.say(f"{len(self.failures)} failed, {len(self.steps)} steps, {took / 60:.1f} minutes")

    def _write(self):
        style = (
            "body{font-family:monospace;max-width:60em;margin:auto} p{margin:0;white-space:pre-wrap}"
            ".ok{color:#064} .FAIL{color:#b00;font-weight:bold} figure{margin:1em 0} img{border:1px solid #888}"
        )
        page = (
            f'<!DOCTYPE html><html lang="en"><meta charset="utf-8"><title>The emulated machine</title>'
            f"<style>{style}</style><h1>The emulated machine</h1>" + "\n".join(self.parts) + "</html>\n"
        )
        (self.folder / "log.html").write_text(page, encoding="utf-8")
