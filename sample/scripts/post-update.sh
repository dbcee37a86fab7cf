#!/bin/sh
# Runs on the instrument after the files are in place: records the update.
echo "firmware 5.2 installed $(date -u +%Y-%m-%dT%H:%M:%SZ)" >> /home/update-history
exit 0
