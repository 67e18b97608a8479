"""Errors of the automation layer itself: a failing HRESULT raises ComError.

A method of the library that fails in the ordinary way does not raise: it returns False and its
LastError record says why. ComError is for what the run time refuses (an unknown name, a wrong
argument count or type) and for a run-time error that leaves a routine without a trap.
"""

from . import _com


def hresult_name(hresult):
    hresult = _com._hr(hresult)
    return _com.HRESULT_NAMES.get(hresult, f"0x{hresult & 0xFFFFFFFF:08X}")


class ComError(Exception):
    """An HRESULT failure of a call into the library.

    hresult     the signed 32-bit HRESULT (name: `hresult_name`)
    strerror    what failed, with the HRESULT's name
    excepinfo   None, or (wCode, source, description, help file, help context, scode) as the
                library's EXCEPINFO filled it for DISP_E_EXCEPTION
    argerr      None, or the index of the offending argument as the run time counts it (the
                last argument is 0), for DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW and
                DISP_E_PARAMNOTFOUND
    argument    None, or the name of that parameter when the type information names it
    """

    def __init__(self, hresult, what, excepinfo=None, argerr=None, argument=None):
        self.hresult = _com._hr(hresult)
        self.hresult_name = hresult_name(hresult)
        self.strerror = f"{what}: {self.hresult_name}"
        self.excepinfo = excepinfo
        self.argerr = argerr
        self.argument = argument
        super().__init__(self.hresult, self.strerror, excepinfo, argerr)

    @property
    def scode(self):
        return self.excepinfo[5] if self.excepinfo else self.hresult

    @property
    def source(self):
        return self.excepinfo[1] if self.excepinfo else ""

    @property
    def description(self):
        return self.excepinfo[2] if self.excepinfo else ""

    def __str__(self):
        text = self.strerror
        if self.argument is not None:
            text += f" (argument {self.argument!r})"
        elif self.argerr is not None:
            text += f" (argument index {self.argerr})"
        if self.excepinfo:
            code, source, description = self.excepinfo[0], self.excepinfo[1], self.excepinfo[2]
            number = self.excepinfo[5] or code
            text += f": {source}: {description} (error {number})"
        return text


class UnknownNameError(ComError, AttributeError):
    """GetIDsOfNames did not know the name (DISP_E_UNKNOWNNAME); also an AttributeError, so
    hasattr() and getattr() with a default work as usual."""

    def __init__(self, hresult, what, name):
        ComError.__init__(self, hresult, what)
        self.name = name
