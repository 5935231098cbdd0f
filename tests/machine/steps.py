"""What is done with the instrument, step by step, and how each step is judged from outside."""

import hashlib
import io

from instrument import BLUE, CONF, EXIT_COLOUR, FILES, REGISTERS, SECTIONS, SIZES, UNIT
from instrument import calibration_file, register_values
from screen import LIVE_VIEW, Picture

EXAMPLES = "/usr/share/doc/orla-verifier/examples"
MAIN_FILE = f"{CONF}/ORLA3.ini"
STAGE_FILE = "/root/Orla2/Orla2.ini"
SWEEP = 15  # positions of an autofocus run
SLOW_STICK = 20000  # bytes a second: a capture takes some seconds
SERIAL = ("07", "01234")
SKIP_FRAME = 7
STEP, SPEED = 128, 300


def install(machine):
    """The packages go into a root that never had them, and the settings to begin with."""
    machine.ask("apt-get install -y /opt/machine/*.deb", limit=600)
    for package in (UNIT, f"{UNIT}-simulator"):
        status = machine.ask(f"dpkg-query -W -f '${{db:Status-Status}} ${{Version}}' {package}")
        machine.verdict(status.startswith("installed"), f"{package}: {status}")
        told = machine.ask(f"QT_QPA_PLATFORM=offscreen {package} --version", limit=120).strip()
        version = status.split()[-1].rsplit("-", 1)[0]
        machine.verdict(version in told, f"it says {told!r}")
    check_not_started(machine)
    machine.ask(
        f"cd {EXAMPLES} && install -D -m 644 -t {CONF} ORLA3.ini Calibration_BFN.ini Calibration_CUS.ini"
        " && install -D -m 644 -t /root/Orla2 Orla2.ini"
    )
    # The examples hold the same values for every mode, which would tell no mode from another.
    for staining, name in FILES.items():
        machine.ask(f"cat >{CONF}/{name} <<'END'\n{calibration_file(staining)}END")


def check_not_started(machine):
    """The packages have come, and the service waits for somebody to start it."""
    enabled = machine.ask(f"systemctl is-enabled {UNIT}", expect=None).strip()
    machine.verdict(enabled == "disabled", f"the service is {enabled}")
    machine.verdict(machine.unit_state() == "inactive", "and was not started")
    machine.verdict(not machine.board.lines, "nothing has been said to the board")


def start(machine, command=f"systemctl start {UNIT}"):
    """The service is started: handshake, homing, settings to board and sensor, first picture."""
    said = len(machine.board.lines)
    machine.forget_sensor_log()
    machine.driver_calls()
    machine.ask(command, limit=120)
    check_started(machine, said)


def check_started(machine, said):
    """The program has come up, and the board heard what it has to since a line's number."""
    machine.tab = "TAB_STAGE"
    lines = lambda: machine.board.lines[said:]
    machine.wait(lambda: len(lines()) >= 2, 240, "the handshake and the homing")
    machine.verdict(
        lines()[:2] == ["$,DEVICE,READY,,", "$,STM1,ORIGIN,,"], f"the board is greeted and homed: {lines()[:2]}"
    )
    # Whether the light is on is the board's to remember: a start sets its level only.
    stored = (machine.reference, machine.led)
    machine.wait(lambda: machine.board.state()[::2] == stored, 240, "the stored stage position and light")
    machine.verdict(True, f"stage and light level at {stored}: {lines()[2:]}")
    machine.wait(lambda: machine.machine.picture().is_like(760, 455, EXIT_COLOUR, 12), 240, "the window")
    machine.verdict(machine.unit_state() == "active", "the service is active")
    machine.verdict(machine.ask("cat /sys/class/tty/tty0/active").strip() == "tty8", "its terminal is shown")


# What the driver is asked for. Buffers that are left hold the format: they are given back only
# where the driver says so, and the format is set once more.
OPENED = "S_FMT REQBUFS 4 x QUERYBUF STREAMON"
REOPENED = "STREAMOFF S_FMT: error -16 REQBUFS " + OPENED


def check_mode(machine, staining, section, caption=None, asked=REOPENED):
    """The camera runs in a mode, with that mode's values in the sensor. asked: the calls to the
    driver that led to it, None if nobody listened."""
    wanted = (*SIZES[section], "YUYV")
    machine.wait(lambda: machine.camera_format() == wanted, 120, f"the driver's format {wanted}")
    machine.wait(lambda: machine.mapped_buffers() == 4, 120, "four mapped buffers")
    machine.verdict(True, f"the driver delivers {wanted}, four buffers are mapped")
    reads = lambda: [access[1] for access in machine.sensor_log() if access[0] == "R"]
    machine.wait(lambda: reads()[-10:] == REGISTERS, 120, "the ten registers read back")
    written = [access[1:] for access in machine.sensor_log() if access[0] == "W"]
    expected = list(zip(REGISTERS, machine.values[staining, section]))
    machine.verdict(written[-10:] == expected, f"the sensor has the values for {staining}, {section}")
    machine.wait(lambda: machine.shows_bars(machine.machine.picture()), 180, "the whole test picture on the screen")
    machine.verdict(machine.is_live(), "the picture on the screen is whole and goes on")
    calls = sequence(machine.driver_calls())
    if asked:
        machine.verdict(calls == asked, f"the driver was asked for {calls}")
    if caption:
        machine.show(caption)


def sequence(calls):
    """The driver's calls in short: what comes again and again once, with its number."""
    short = []
    for name, error in calls:
        if short and short[-1][0] == name + error:
            short[-1][1] += 1
        else:
            short.append([name + error, 1])
    return " ".join(name if count == 1 else f"{count} x {name}" for name, count in short)


def first_start(machine):
    start(machine)
    check_mode(machine, "NTB", "1280", "Started", OPENED)


def modes(machine):
    """All three resolutions twice, then the other staining with all of them, and back."""

    def choose(button, staining, section, caption=None):
        machine.forget_sensor_log()
        machine.press(button)
        check_mode(machine, staining, section, caption)

    for round_number in (1, 2):
        for section in ("VGA", "5M", "1280"):
            caption = f"Resolution {section}" if round_number == 1 else None
            choose(f"BUTTON_RESOLUTION_{section}", "NTB", section, caption)
    choose("BUTTON_STAINING_TB", "TB", "1280", "Staining TB")
    for section in ("VGA", "5M", "1280"):
        choose(f"BUTTON_RESOLUTION_{section}", "TB", section)
    choose("BUTTON_STAINING_NTB", "NTB", "1280", "Staining NTB")


def registers(machine):
    """A press changes the sensor's registers; a silent sensor is told of, a claimed one is reached."""
    values = machine.values["NTB", "1280"]
    high, low = values[:2]
    value = high * 256 + low
    machine.forget_sensor_log()
    machine.press("BUTTON_EXPOSURE_COARSE_UP")
    machine.wait(lambda: len(machine.sensor_log()) >= 2, 60, "a write to the sensor")
    written = machine.settled(machine.sensor_log)
    expected = []
    for _ in range(len(written) // 2):  # more than one if the finger was slow
        value += 16
        expected += [("W", 0x3501, value >> 8), ("W", 0x3502, value & 255)]
    machine.verdict(written == expected, f"the exposure goes up by 16 a step: {written}")
    in_sensor = (machine.sensor_register(0x3501), machine.sensor_register(0x3502))
    machine.verdict(in_sensor == (value >> 8, value & 255), f"and stands in the sensor: {in_sensor}")
    values[:2] = in_sensor
    for place, name in enumerate(("GAIN", "COLOR_RED", "COLOR_GREEN", "COLOR_BLUE"), 1):
        press_and_see_written(machine, f"BUTTON_{name}_FINE_UP", values, place)

    machine.ask("echo 1 >/sys/kernel/debug/orla_sensor/silent")
    machine.press("BUTTON_EXPOSURE_FINE_UP")
    machine.wait(lambda: machine.has_notice(), 60, "the notice of a silent sensor")
    machine.verdict(True, "a sensor that does not answer is told of")
    machine.show("Sensor silent")
    after = (machine.sensor_register(0x3501), machine.sensor_register(0x3502))
    machine.verdict(after == in_sensor, f"nothing has reached it: {after}")
    machine.ask("echo 0 >/sys/kernel/debug/orla_sensor/silent")
    press_and_see_written(machine, "BUTTON_EXPOSURE_FINE_DOWN", values, follows=False)
    machine.wait(lambda: not machine.has_notice(), 60, "the notice to go")
    machine.verdict(True, "the notice goes once it answers again")

    # On the instrument the capture driver has the sensor's address.
    machine.ask("echo dummy 0x3c >/sys/bus/i2c/devices/i2c-1/new_device")
    driver = machine.ask("basename $(readlink /sys/bus/i2c/devices/1-003c/driver)").strip()
    machine.verdict(driver == "dummy", f"the address belongs to a driver of the kernel's: {driver}")
    press_and_see_written(machine, "BUTTON_EXPOSURE_FINE_UP", values)
    machine.verdict(not machine.has_notice(), "the sensor is reached all the same")
    machine.ask("echo 0x3c >/sys/bus/i2c/devices/i2c-1/delete_device")


def press_and_see_written(machine, button, values, place=0, follows=True):
    """Presses a fine button of the value at a place of the camera tab's order, and keeps in values
    what has reached the sensor. follows: whether the sensor has what the window showed before."""
    high, low = registers = REGISTERS[2 * place : 2 * place + 2]
    before = values[2 * place] * 256 + values[2 * place + 1]
    machine.forget_sensor_log()
    machine.press(button)
    machine.wait(lambda: len(machine.sensor_log()) >= 2, 60, "a write to the sensor")
    written = machine.settled(machine.sensor_log)
    after = (machine.sensor_register(high), machine.sensor_register(low))
    # A finger that was slow counts more than once.
    step = (after[0] * 256 + after[1] - before) * (1 if button.endswith("UP") else -1)
    in_order = [access[:2] for access in written] == [("W", register) for register in registers] * (len(written) // 2)
    good = in_order and (step == len(written) // 2 or not follows)
    machine.verdict(good, f"{button} reaches the sensor: {written}")
    values[2 * place : 2 * place + 2] = after


def plug_stick(machine):
    machine.machine.plug(machine.stick_path)
    machine.wait(lambda: machine.is_mounted() == ["/dev/sda1", "vfat"], 120, "the stick at /mnt")
    machine.verdict(True, f"the stick is mounted: {machine.is_mounted()}")


def autofocus(machine):
    """A stick is plugged in; a run with its log on it."""
    plug_stick(machine)
    # The sweep lies around the position that the tab shows.
    said = len(machine.board.lines)
    machine.press("BUTTON_Z_POSITION")
    machine.wait(lambda: "$,STM1,GET_POS,," in machine.board.lines[said:], 60, "the position")
    machine.press("CHECK_DEBUG_AUTOFOCUS")
    said = len(machine.board.lines)
    machine.press("BUTTON_AUTOFOCUS")
    box = machine.wait_for_box("Autofocus finished", 600)
    lines = machine.board.lines[said:]
    steps = lines.count("$,STM1,MVP,640,")
    machine.verdict(steps == SWEEP, f"{steps} steps of 640 on the board")
    place, _, _ = machine.board.state()
    machine.answer_box(box)
    machine.ask("sync")
    names = [name for name in machine.stick.names() if name.startswith("ORLA-II/Autofocus/")]
    pictures = sorted(name for name in names if name.endswith(".tiff"))
    machine.verdict(len(pictures) == SWEEP, f"{len(pictures)} pictures on the stick")
    positions = [int(name.rsplit("_", 2)[1]) for name in pictures]
    expected = [machine.reference - 640 * (SWEEP // 2) + 640 * (i + 1) for i in range(SWEEP)]
    machine.verdict(positions == expected, f"taken at {positions}")
    sizes = {picture_size(machine.stick.read(name)) for name in pictures}
    machine.verdict(sizes == {SIZES["1280"]}, f"of {sizes} pixels")
    tables = [name for name in names if name.endswith(".csv")]
    machine.verdict(len(tables) == 1, f"one table on the stick: {tables}")
    rows = [row.split(",") for row in machine.stick.read(tables[0]).decode().splitlines() if row]
    samples, best = rows[:-1], rows[-1]
    machine.verdict([int(row[1]) for row in samples] == positions, "the table has the same positions")
    scores = [float(row[2]) for row in samples]
    winner = scores.index(max(scores))
    machine.verdict(int(best[0]) == winner + 1 and int(best[1]) == positions[winner], f"the best one is {best}")
    machine.verdict(place == positions[winner], f"the stage stands there: {place}")


def picture_size(content):
    """Width and height of a picture file that holds all of its picture."""
    picture = Picture(io.BytesIO(content))
    return (picture.width, picture.height)


def is_whole(machine, name):
    """Whether a picture is on the stick, all of it."""
    try:
        return name in machine.stick.names() and bool(picture_size(machine.stick.read(name)))
    except OSError:
        return False


def save_capture(machine, name):
    """From the button to the dialog's end; the file is being written then."""
    machine.press("BUTTON_CAPTURE")
    machine.wait_for_box(f"Name for {name}")
    machine.machine.type(name)
    machine.machine.key("ret")


def captured(machine, name, what):
    """A captured file, once all of it is on the stick."""
    machine.wait(lambda: name in machine.ask("ls /mnt", expect=None).split(), 120, what)
    machine.settled(lambda: machine.ask(f"stat -c %s /mnt/{name}"))
    machine.ask("sync")
    return machine.stick.read(name)


def capture(machine):
    """A capture goes to the stick; during the next one the stick is pulled."""
    save_capture(machine, "one")
    content = captured(machine, "one.tif", "the file")
    machine.wait(lambda: not machine.machine.picture().box(), 60, "the dialog to go")
    machine.verdict(picture_size(content) == SIZES["1280"], f"one.tif has {picture_size(content)} pixels")

    machine.press("BUTTON_RESOLUTION_5M")
    machine.wait(lambda: machine.camera_format() == (*SIZES["5M"], "YUYV"), 120, "5M")
    machine.wait(lambda: machine.shows_bars(machine.machine.picture()), 180, "the picture")
    pid = machine.pid()
    machine.machine.limit_stick(SLOW_STICK)
    save_capture(machine, "two")
    machine.wait(
        lambda: "two.tif" in machine.ask("ls /mnt", expect=None).split(), 120, "the second file's beginning", 0.05
    )
    machine.machine.pull()
    machine.machine.limit_stick(0)
    machine.verdict(not is_whole(machine, "two.tif"), "the stick was pulled in the middle of the second file")
    machine.wait(lambda: machine.is_mounted() == [], 180, "the mount to go")
    machine.verdict(True, "nothing is mounted any more")
    machine.verdict(machine.unit_state() == "active" and machine.pid() == pid, "the program goes on")
    machine.wait(lambda: not machine.machine.picture().box(), 60, "the dialog to go")
    machine.verdict(machine.is_live(), "and its picture")
    machine.press("BUTTON_CAPTURE")
    machine.answer_box(machine.wait_for_box("No disk"))
    machine.verdict(
        hashlib.sha256(machine.stick.read("one.tif")).digest() == hashlib.sha256(content).digest(),
        "the first file is on the stick as it was",
    )
    plug_stick(machine)
    save_capture(machine, "three")
    size = picture_size(captured(machine, "three.tif", "the third file"))
    machine.verdict(size == SIZES["5M"], f"plugged in again, three.tif has {size} pixels")


def screenshot(machine):
    """The Print key puts the screen onto the stick, as it was."""
    before = machine.show("Before the Print key")
    machine.machine.key("print")
    box = machine.wait_for_box("Screenshot saved")
    machine.answer_box(box)
    names = [name for name in machine.stick.names() if name.endswith(".png")]
    machine.verdict(names == ["KorvexCap-0001.png"], f"on the stick: {names}")
    saved = Picture(io.BytesIO(machine.stick.read(names[0])))
    machine.verdict((saved.width, saved.height) == (800, 480), f"it has {saved.width} x {saved.height} pixels")
    # The live view went on meanwhile; the tabs beside it did not.
    panel = (640, 0, 160, 480)
    machine.verdict(saved.part(*panel) == before.part(*panel), "its tabs are those of the screen, pixel by pixel")
    machine.verdict(machine.shows_bars(saved), "its live view has the test picture")


def measure(machine):
    """A still of 5M, and two points 400 pixels apart in its dark end."""
    machine.press("BUTTON_QC_CAPTURE")
    # The camera stops for the change to 5M already; only the still has the navigator's lower edge.
    machine.wait(lambda: machine.machine.picture().is_like(40, 60, (255, 255, 0)), 120, "the navigator")
    machine.verdict(machine.mapped_buffers() == 0, "the camera has stopped")
    first = machine.settled(lambda: machine.machine.picture().part(*LIVE_VIEW))
    machine.show("Still picture")
    machine.verdict(first == machine.machine.picture().part(*LIVE_VIEW), "the picture is still")
    for _ in range(5):
        machine.drag((620, 300), (20, 300))
    dark = lambda: all(machine.machine.picture().at(x, 300)[1] < 40 for x in (100, 300, 500))
    machine.wait(dark, 60, "the dark end of the picture")
    machine.press("CHECK_TARGET")
    for number, x in ((1, 100), (2, 500)):
        machine.touch(x, 300)
        machine.press(f"BUTTON_POINT_{number}")
        # A panel that is turned may be a pixel off.
        cross = lambda: any(machine.machine.picture().is_like(x - 10, y, (255, 0, 0)) for y in (298, 299, 300, 301))
        machine.wait(cross, 240, f"the cross of point {number}")
    machine.press("BUTTON_QC_MEASURE")
    # The edit's light text on its dark ground; its corners are round.
    x, y, width, height = machine.form.rectangles["EDIT_MAGNIFICATION"]
    inner = (x + 5, y + 5, width - 10, height - 10)
    machine.wait(lambda: max(machine.machine.picture().part(*inner)) > 220, 120, "the result")
    machine.show("Measured")


# 400 pixels are 0.4 mm: 1.4 micrometers a pixel on the sensor, 1 on the slide.
MEASURED = {"Magnification": 1.4, "Volume factor": 0.50388}


def type_identity(machine):
    """The serial number and the skip frame number, as a technician types them."""
    for name, text in (("EDIT_SERIAL_MIDFIX", SERIAL[0]), ("EDIT_SERIAL_SUFFIX", SERIAL[1])):
        machine.write(name, text)
    machine.write("EDIT_SKIP_FRAME", str(SKIP_FRAME))
    machine.press("BUTTON_SKIP_FRAME")
    machine.answer_box(machine.wait_for_box("Skip frame taken"))


def check_identity(machine, tolerance=0):
    """Everything that the tab QC saves is in the file. tolerance: how far the measured values may be
    from the true ones, as a part of them."""
    saved = machine.settings(MAIN_FILE)
    instrument = saved["ORLA-III"]
    machine.verdict(instrument["Serial"] == f"OR3-{SERIAL[0]}-{SERIAL[1]}", f"serial number {instrument['Serial']}")
    machine.verdict(saved["Cell counting"]["Skip frame"] == str(SKIP_FRAME), "the skip frame number is the typed one")
    for key, value in MEASURED.items():
        error = abs(float(instrument[key]) - value)
        machine.verdict(error <= tolerance * value, f"{key.lower()} {instrument[key]}")


def quality_control(machine):
    """The optical calibration, and all that the tab QC saves."""
    type_identity(machine)
    measure(machine)
    machine.save("QC saved")
    check_identity(machine)
    machine.press("BUTTON_QC_CAPTURE")
    machine.wait(lambda: machine.mapped_buffers() == 4, 120, "the camera to go on")
    machine.verdict(machine.is_live(), "Live brings the picture back")


def set_stage(machine):
    """The stage one jog above its reference, that as the new one, and another step and speed. The
    new reference."""
    said = len(machine.board.lines)
    machine.press("BUTTON_Z_MOVE_REFERENCE")
    machine.wait(lambda: f"$,STM1,ABS,{machine.reference}," in machine.board.lines[said:], 60, "the order to the stage")
    machine.wait(lambda: machine.board.state()[0] == machine.reference, 60, "the stage at its reference")
    # Until the button is blue no more, nothing else reacts.
    left, top, width, _ = machine.form.rectangles["BUTTON_Z_MOVE_REFERENCE"]
    is_blue = lambda: machine.machine.picture().is_like(left + width // 2, top + 5, BLUE, 12)
    machine.wait(lambda: not is_blue(), 60, "the stage tab to react again")
    machine.press("BUTTON_Z_MOVE_PLUS")
    machine.wait(lambda: machine.board.state()[0] > machine.reference, 60, "the stage to move")
    place = machine.settled(lambda: machine.board.state()[0])
    machine.press("BUTTON_Z_SET_REFERENCE")
    machine.write("SPIN_Z_STEP", str(STEP))
    machine.write("SPIN_Z_SPEED", str(SPEED))
    return place


def set_camera(machine):
    """More light and a longer exposure; the level, and the exposure's two registers."""
    exposure = lambda: (machine.sensor_register(0x3501), machine.sensor_register(0x3502))
    before = exposure()
    machine.press("BUTTON_LED_COARSE_UP")
    machine.wait(lambda: machine.board.state()[2] > machine.led, 60, "the light to change")
    led = machine.settled(lambda: machine.board.state()[2])
    machine.press("BUTTON_EXPOSURE_COARSE_UP")
    machine.wait(lambda: exposure() != before, 60, "the exposure")
    return led, machine.settled(exposure)


def check_stage(machine, place):
    """Everything that the tab STAGE saves is in its files."""
    calibration = machine.settings(MAIN_FILE)["Calibration"]
    expected = {"Z reference": 0, "Z reset pos": 0, "Z ref 2ch": 2560, "Z ref Reusable": 5120, "Z ref Validation": 0}
    for key, more in expected.items():
        machine.verdict(calibration.get(key) == str(place + more), f"{key}: {calibration.get(key)}")
    stage = machine.settings(STAGE_FILE)["Z stage"]
    machine.verdict(stage == {"Step": str(STEP), "Speed": str(SPEED)}, f"step and speed: {stage}")


def check_camera(machine, section, led, exposure):
    """What was changed on the tab CAMERA in a resolution is in its files."""
    level = machine.settings(MAIN_FILE)["Ch. BF"]["LED"]
    machine.verdict(level == str(led), f"light: {level}")
    saved = machine.settings(f"{CONF}/{FILES['NTB']}")[section]
    machine.verdict(
        (int(saved["0x3501"], 16), int(saved["0x3502"], 16)) == exposure,
        f"exposure: {saved['0x3501']}, {saved['0x3502']}",
    )


def power(machine):
    """Save on stage and camera tab, power cut as soon as it says so, and all is as it was."""
    place = set_stage(machine)
    machine.save("Stage saved")
    led, exposure = set_camera(machine)
    machine.press("BUTTON_SAVE_INI")
    machine.wait_for_box("Camera saved")
    machine.power_cut()
    machine.record.say("power cut")
    machine.power_on()
    machine.record.say("started anew")
    check_stage(machine, place)
    check_camera(machine, "5M", led, exposure)
    check_identity(machine)
    other = machine.settings(f"{CONF}/{FILES['TB']}")
    values = [[int(other[section][f"0x{address:04X}"], 16) for address in REGISTERS] for section in SECTIONS]
    machine.verdict(values == [register_values("TB", section) for section in SECTIONS], "the other staining's values")
    machine.values["NTB", "5M"][:2] = exposure
    machine.reference, machine.led = place, led
    before = machine.settings(f"{CONF}/{FILES['NTB']}")
    start(machine)
    check_mode(machine, "NTB", "1280", "After the power cut", OPENED)
    # What the power's cut may have left beside the files goes with the next save.
    machine.open_tab("TAB_CAMERA")
    machine.save("Saved again")
    left = machine.ask(f"find {CONF} /root/Orla2 -mindepth 1 ! -name '*.ini'").split()
    machine.verdict(not left, f"no scraps beside the files: {left}")
    again = machine.settings(f"{CONF}/{FILES['NTB']}")
    machine.verdict(again == before, "the saved values are those of before")


def board_silent(machine):
    """The board loses its power and gets it back."""
    machine.board.order("off")
    machine.press("BUTTON_Z_POSITION")
    machine.wait(lambda: machine.has_notice(), 120, "the notice of a silent board")
    machine.verdict(machine.unit_state() == "active", "a board that does not answer is told of")
    machine.show("Board silent")
    machine.board.order("on")
    said = len(machine.board.lines)
    # The question that was left without an answer: until it is asked again, it is told of.
    machine.press("BUTTON_Z_POSITION")
    machine.wait(lambda: machine.board.lines[said:], 120, "a command on the line")
    machine.wait(lambda: not machine.has_notice(), 120, "the notice to go")
    asked = machine.board.lines[said:]
    machine.verdict(asked == ["$,STM1,GET_POS,,"], f"it is spoken to: {asked}")


def camera_gone(machine):
    """The camera is taken from its driver and given back."""
    pid = machine.pid()
    machine.ask("echo vivid.0 >/sys/bus/platform/drivers/vivid/unbind")
    machine.wait(lambda: machine.has_notice(), 120, "the notice of a camera that is gone")
    machine.verdict(machine.unit_state() == "active" and machine.pid() == pid, "a camera that is gone is told of")
    machine.show("Camera gone")
    # Only then its name is free.
    held = f"ls -l /proc/{pid}/fd /proc/{pid}/map_files | grep -c /dev/video"
    machine.wait(lambda: machine.ask(held, expect=None).strip() == "0", 60, "the device to be let go of")
    machine.ask("echo vivid.0 >/sys/bus/platform/drivers/vivid/bind")
    machine.record.say("cameras: " + machine.ask("ls -l /dev/video*", expect=None).strip())
    machine.watch_camera()
    machine.forget_sensor_log()
    machine.driver_calls()
    machine.press("BUTTON_RESOLUTION_1280")
    check_mode(machine, "NTB", "1280", "Camera back", OPENED)
    machine.verdict(not machine.has_notice(), "the notice has gone")


def leave(machine):
    """Exit parks the instrument, the service can be started again, and its end parks it too."""
    press_exit(machine)
    start(machine)
    check_mode(machine, "NTB", "1280", "Started again", OPENED)
    said = len(machine.board.lines)
    machine.ask(f"systemctl stop {UNIT}", limit=120)
    check_parked(machine, said)


def press_exit(machine):
    """Exit, answered with Yes, parks the instrument."""
    said = len(machine.board.lines)
    machine.press("BUTTON_EXIT")
    machine.answer_box(machine.wait_for_box("Exit"), button=0, of=2)
    check_parked(machine, said)


def check_parked(machine, said):
    """The service has ended well, and the board heard what it has to since a line's number."""
    machine.wait(lambda: machine.unit_state() == "inactive", 180, "the service to end")
    lines = machine.board.lines[said:]
    machine.verdict(lines == ["$,LED4,OFF,,", "$,STM1,ORIGIN,,"], f"light off and stage home: {lines}")
    machine.verdict(machine.board.state()[:2] == (0, 0), f"so they are: {machine.board.state()}")
    result = machine.ask(f"systemctl show -p Result -p ExecMainStatus --value {UNIT}").split()
    machine.verdict(result == ["success", "0"] or result == ["0", "success"], f"it ended well: {result}")
    machine.verdict(machine.ask("cat /sys/class/tty/tty0/active").strip() == "tty1", "the console is shown again")


STEPS = [
    ("Packages installed", install),
    ("Started", first_start),
    ("Resolutions and stainings", modes),
    ("Sensor registers", registers),
    ("Autofocus with its log on a stick", autofocus),
    ("Captures, and a stick that is pulled", capture),
    ("Print key", screenshot),
    ("QC on a still picture", quality_control),
    ("Save, power cut, reboot", power),
    ("Board silent", board_silent),
    ("Camera taken from its driver", camera_gone),
    ("Exit", leave),
]
