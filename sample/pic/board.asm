; Power-board supervisor firmware (sample): blinks the status LED on RB0 from a timer and keeps its
; version string in flash, so an update can be seen on the board.
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
    goto timer_isr

    org 0x0030
start:
    clrf LATB, ACCESS
    bcf TRISB, 0, ACCESS            ; RB0 drives the status LED
    movlw b'10000111'               ; timer 0 on, 16 bit, prescaler 1:256
    movwf T0CON, ACCESS
    bsf INTCON, TMR0IE, ACCESS
    bsf INTCON, GIE, ACCESS
idle:
    bra idle

timer_isr:
    bcf INTCON, TMR0IF, ACCESS
    btg LATB, 0, ACCESS
    retfie FAST

    org 0x0200
version:
    db "PSU supervisor 2.7", 0

    end
