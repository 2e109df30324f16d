'''A ModemManager for the tests: an object manager holding one modem
(numbered by the "Modem" parameter, default 0) whose EquipmentIdentifier is
the "IMEI" parameter.'''

import dbus

BUS_NAME = 'org.freedesktop.ModemManager1'
MAIN_OBJ = '/org/freedesktop/ModemManager1'
MAIN_IFACE = 'org.freedesktop.ModemManager1'
SYSTEM_BUS = True
IS_OBJECT_MANAGER = True


def load(mock, parameters):
    for n in str(parameters.get('Modems', '0')).split(','):
        mock.AddObject(MAIN_OBJ + '/Modem/' + n.strip(), 'org.freedesktop.ModemManager1.Modem',
                       {'EquipmentIdentifier': dbus.String(parameters.get('IMEI', '') + n.strip()),
                        'Manufacturer': dbus.String('kp120 tests')}, [])
