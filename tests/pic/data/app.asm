; A small PIC18F4620 application image for the programming tests: code and tables spread over rows, an odd
; table length, data right below the top of flash, ID locations, data EEPROM and every configuration word.
    include <p18f4620.inc>

    config OSC = HS, FCMEN = OFF, IESO = OFF
    config PWRT = ON, BOREN = SBORDIS, BORV = 3
    config WDT = OFF, WDTPS = 32768
    config CCP2MX = PORTC, PBADEN = OFF, LPT1OSC = OFF, MCLRE = ON
    config STVREN = ON, LVP = ON, XINST = OFF
    config CP0 = OFF, CP1 = OFF, CP2 = OFF, CP3 = OFF, CPB = OFF, CPD = OFF
    config WRT0 = OFF, WRT1 = OFF, WRT2 = OFF, WRT3 = OFF, WRTC = OFF, WRTB = OFF, WRTD = OFF
    config EBTR0 = OFF, EBTR1 = OFF, EBTR2 = OFF, EBTR3 = OFF, EBTRB = OFF

    org 0x0000
    goto start

    org 0x0008
high_isr:
    bcf INTCON, TMR0IF, ACCESS
    retfie FAST

    org 0x0018
low_isr:
    retfie

    org 0x0030
start:
    clrf TRISB, ACCESS
    movlw upper(message)
    movwf TBLPTRU, ACCESS
    movlw high(message)
    movwf TBLPTRH, ACCESS
    movlw low(message)
    movwf TBLPTRL, ACCESS
next:
    tblrd*+
    movf TABLAT, W, ACCESS
    bz done
    movwf LATB, ACCESS
    bra next
done:
    call table_in_block1
    bra start

    org 0x0100
message:
    db "Instrument PIC", 0          ; odd length

    org 0x01F0
crossing:
    db 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF
    db 0x01, 0x12, 0x23, 0x34, 0x45, 0x56, 0x67, 0x78, 0x89, 0x9A, 0xAB, 0xBC, 0xCD, 0xDE, 0xEF, 0xF0

    org 0x0238
straddling:                         ; across the row boundary at 0x0240
    db 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF

    org 0x4000
table_in_block1:
    retlw 0x42

    org 0xFFE0
top_table:
    db 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80, 0x90, 0xA0, 0xB0, 0xC0, 0xD0, 0xE0, 0xF0, 0x01
    db 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x1F, 0x2F

    __idlocs _IDLOC0, 0x1
    __idlocs _IDLOC7, 0x8

    org 0xF00000
    de "eeprom data"

    end
