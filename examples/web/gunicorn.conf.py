# gunicorn settings for the example site: the site's keys are made once, in the master, before
# any worker starts, so all workers share one signature key. Bind address and worker count come
# from the command line.
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
wsgi_app = "quivsite:app"


def on_starting(server):
    import quivsite
    if quivsite.ensure_site_keys():
        server.log.info("created the site's signature key in container %s", quivsite.CONTAINER)
