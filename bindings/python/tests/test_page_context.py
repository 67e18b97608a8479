"""The page context of a WSGI request: what the library reads of it, and the web parts it puts
into an error record's assembled message."""

import gc
import io

import quiv
from quiv import page as page_module

ENVIRON = {
    "REQUEST_METHOD": "GET", "SCRIPT_NAME": "/shop", "PATH_INFO": "/pay.asp",
    "QUERY_STRING": "item=7&qty=2", "HTTP_COOKIE": "session=abc; lang=en",
    "SERVER_NAME": "shop.example", "SERVER_PORT": "8080", "REMOTE_ADDR": "127.0.0.9",
    "LOCAL_ADDR": "127.0.0.1", "wsgi.input": io.BytesIO(), "wsgi.url_scheme": "http",
}


def failing_provider(environ):
    """A provider made for the page whose SetProviderName fails (a provider it does not
    support)."""
    provider = quiv.Dispatch("QUIV.CProvider", page=environ)
    result = provider.SetProviderName("No Such Cryptographic Provider")
    assert (result[0] if isinstance(result, tuple) else result) is False
    return provider


def test_server_variables_of_a_wsgi_request():
    page = quiv.PageContext(ENVIRON)
    assert page.server_variable("PATH_INFO") == "/shop/pay.asp"
    assert page.server_variable("local_addr") == "127.0.0.1"
    assert page.server_variable("HTTP_COOKIE") == "session=abc; lang=en"
    assert page.server_variable("NO_SUCH_VARIABLE") == ""
    assert page.query_string == "item=7&qty=2"
    assert page.url == "/shop/pay.asp?item=7&qty=2"


def test_the_local_address_comes_from_the_socket_when_the_server_gives_one():
    class Socket:
        def getsockname(self):
            return ("127.0.0.5", 4711)
    environ = {k: v for k, v in ENVIRON.items() if k != "LOCAL_ADDR"}
    environ["gunicorn.socket"] = Socket()
    assert quiv.PageContext(environ).server_variable("LOCAL_ADDR") == "127.0.0.5"


def test_a_failing_call_carries_the_page_url_server_address_and_cookies():
    provider = failing_provider(ENVIRON)
    try:
        record = provider.LastError
        message = str(record)
        assert ("Pg: /shop/pay.asp?item=7&qty=2. WSrvr: 127.0.0.1. "
                "Cookies: session=abc; lang=en. ") in message
        assert message.endswith("Cookies: session=abc; lang=en. ")
        assert record.WebPageURL == "/shop/pay.asp?item=7&qty=2"
        assert record.WebIP == "127.0.0.1"
        assert record.WebCookies == "session=abc; lang=en"
    finally:
        provider.TerminateAll()


def test_an_empty_query_string_still_gets_its_question_mark():
    environ = dict(ENVIRON, QUERY_STRING="", HTTP_COOKIE="")
    provider = failing_provider(environ)
    try:
        assert "Pg: /shop/pay.asp?. WSrvr: 127.0.0.1. Cookies: . " in str(provider.LastError)
    finally:
        provider.TerminateAll()


def test_without_a_page_no_web_parts_are_written():
    provider = quiv.Dispatch("QUIV.CProvider")
    provider.SetProviderName("No Such Cryptographic Provider")
    try:
        message = str(provider.LastError)
        assert message and "Pg:" not in message and "WSrvr:" not in message
    finally:
        provider.TerminateAll()


def test_the_library_keeps_the_page_alive_and_lets_it_go():
    before = set(page_module._pages.keys())
    provider = quiv.Dispatch("QUIV.CProvider", page=dict(ENVIRON, QUERY_STRING="kept=1"))
    gc.collect()  # Python holds no reference to the page any more; the error record does
    mine = set(page_module._pages.keys()) - before
    assert len(mine) == 1
    provider.SetProviderName("No Such Cryptographic Provider")
    assert "Pg: /shop/pay.asp?kept=1. " in str(provider.LastError)
    provider.TerminateAll()
    del provider
    gc.collect()
    assert not mine & set(page_module._pages.keys())


def test_a_page_context_given_directly_to_on_start_page():
    record = quiv.Dispatch("QUIV.CErrHandler")
    page = quiv.PageContext(variables={"PATH_INFO": "/direct.asp", "LOCAL_ADDR": "10.1.2.3",
                                       "HTTP_COOKIE": "a=b"}, query_string="x=1")
    record.OnStartPage(page)
    provider = quiv.Dispatch("QUIV.CProvider")
    provider.OnStartPage(page)
    provider.SetProviderName("No Such Cryptographic Provider")
    try:
        assert "Pg: /direct.asp?x=1. WSrvr: 10.1.2.3. Cookies: a=b. " in str(provider.LastError)
    finally:
        provider.TerminateAll()
